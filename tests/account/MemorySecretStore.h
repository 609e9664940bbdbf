#pragma once

#include "platform/SecretStore.h"

#include <QHash>
#include <QStringList>
#include <QTimer>
#include <chrono>
#include <qcorotimer.h>

// The secret store of unit tests: items in memory. A missing or locked secret service is the real
// one's (secret_service_test, and the sign-in without one).
class MemorySecretStore : public SecretStore {
public:
    QHash<QString, QByteArray> items; // "service/account"
    int removals = 0;
    // Each call takes this long, so that overlapping calls would show in the log.
    std::chrono::milliseconds delay{0};
    QStringList log;

    QCoro::Task<ReadResult> read(QString service, QString account) override {
        co_await pause(QStringLiteral("read"));
        const auto item = items.constFind(service + u'/' + account);
        if (item == items.constEnd())
            co_return ReadResult{Status::itemNotFound, {}};
        co_return ReadResult{Status::success, *item};
    }
    QCoro::Task<Status> write(QString service, QString account, QByteArray secret) override {
        co_await pause(QStringLiteral("write"));
        items.insert(service + u'/' + account, secret);
        co_return Status::success;
    }
    QCoro::Task<Status> remove(QString service, QString account) override {
        ++removals;
        co_await pause(QStringLiteral("remove"));
        co_return items.remove(service + u'/' + account) ? Status::success : Status::itemNotFound;
    }

private:
    QCoro::Task<> pause(QString call) {
        log.append(QStringLiteral("begin ") + call);
        if (delay.count() > 0) {
            QTimer timer;
            timer.setSingleShot(true);
            timer.start(delay);
            co_await timer;
        }
        log.append(QStringLiteral("end ") + call);
    }
};
