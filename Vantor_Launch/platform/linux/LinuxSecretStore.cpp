#include "platform/linux/LinuxSecretStore.h"

#include <QCoroSignal>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <memory>
#include <qt6keychain/keychain.h>

using namespace Qt::StringLiterals;

namespace {

using Attributes = QMap<QString, QString>;

// QtKeychain reads an item of a locked keyring as missing, which would tell the user that the
// session ended when it is only out of reach. The Secret Service lists locked items, by the
// attributes QtKeychain gives them, without unlocking anything.
QCoro::Task<bool> isLockedAway(QString service, QString account) {
    qDBusRegisterMetaType<Attributes>();
    QDBusMessage search =
        QDBusMessage::createMethodCall(u"org.freedesktop.secrets"_s, u"/org/freedesktop/secrets"_s,
                                       u"org.freedesktop.Secret.Service"_s, u"SearchItems"_s);
    search << QVariant::fromValue(Attributes{{u"server"_s, service}, {u"user"_s, account}});
    const QDBusPendingCall call = QDBusConnection::sessionBus().asyncCall(search, 10'000);
    QDBusPendingCallWatcher watcher(call);
    co_await qCoro(&watcher, &QDBusPendingCallWatcher::finished);
    // No Secret Service on the bus: QtKeychain answered from another backend, whose word stands.
    const QDBusPendingReply<QList<QDBusObjectPath>, QList<QDBusObjectPath>> reply = call;
    co_return reply.isValid() && !reply.argumentAt<1>().isEmpty();
}

// Runs one job to its end. The job is ours to delete, so that its result can still be read when
// the coroutine resumes after the finished signal.
template <typename Job>
QCoro::Task<QKeychain::Error> run(Job& job) {
    job.setAutoDelete(false);
    job.setInsecureFallback(false);
    QKeychain::Error error = QKeychain::OtherError;
    bool finished = false;
    QObject::connect(&job, &QKeychain::Job::finished, &job, [&](QKeychain::Job* done) {
        error = done->error();
        finished = true;
    });
    job.start();
    while (!finished)
        co_await qCoro(&job, &QKeychain::Job::finished);
    co_return error;
}

SecretStore::Status statusOf(QKeychain::Error error) {
    switch (error) {
    case QKeychain::NoError:
        return SecretStore::Status::success;
    case QKeychain::EntryNotFound:
        return SecretStore::Status::itemNotFound;
    default:
        return SecretStore::Status::failure;
    }
}

} // namespace

QCoro::Task<SecretStore::ReadResult> LinuxSecretStore::read(QString service, QString account) {
    const auto job = std::make_unique<QKeychain::ReadPasswordJob>(service);
    job->setKey(account);
    const QKeychain::Error error = co_await run(*job);
    ReadResult result{statusOf(error), {}};
    if (result.status == Status::success)
        result.secret = job->binaryData();
    if (result.status == Status::itemNotFound && co_await isLockedAway(service, account))
        result.status = Status::failure;
    co_return result;
}

QCoro::Task<SecretStore::Status> LinuxSecretStore::write(QString service, QString account,
                                                         QByteArray secret) {
    const auto job = std::make_unique<QKeychain::WritePasswordJob>(service);
    job->setKey(account);
    job->setBinaryData(secret);
    co_return statusOf(co_await run(*job));
}

QCoro::Task<SecretStore::Status> LinuxSecretStore::remove(QString service, QString account) {
    const auto job = std::make_unique<QKeychain::DeletePasswordJob>(service);
    job->setKey(account);
    co_return statusOf(co_await run(*job));
}

namespace PlatformServices {

std::shared_ptr<SecretStore> makeSecretStore() {
    return std::make_shared<LinuxSecretStore>();
}

} // namespace PlatformServices
