#pragma once

#include "foundation/AccountSyncState.h"

#include <QColor>
#include <QDateTime>
#include <QLocale>
#include <QObject>
#include <QTimer>
#include <QtQmlIntegration>

// What the status line of the website account says for a sync state: its text, icon and colour,
// and the cached-data caption that failures and expired sessions add when they carry a date.
class SyncStatusPresenter : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(AccountSyncState syncState READ syncState WRITE setSyncState NOTIFY changed)
    Q_PROPERTY(QString text READ text NOTIFY changed)
    Q_PROPERTY(QString symbol READ symbol NOTIFY changed)
    Q_PROPERTY(QColor color READ color NOTIFY changed)
    Q_PROPERTY(QString caption READ caption NOTIFY changed)
    // A sync is running: another one cannot start.
    Q_PROPERTY(bool syncing READ syncing NOTIFY changed)

public:
    struct Description {
        QString text;
        QString symbol;
        QColor color;
        QString caption; // empty when there is no second line
    };

    static Description describe(const AccountSyncState& state, const QDateTime& now,
                                const QLocale& locale = QLocale());

    explicit SyncStatusPresenter(QObject* parent = nullptr);

    AccountSyncState syncState() const { return m_state; }
    void setSyncState(const AccountSyncState& state);
    QString text() const { return m_description.text; }
    QString symbol() const { return m_description.symbol; }
    QColor color() const { return m_description.color; }
    QString caption() const { return m_description.caption; }
    bool syncing() const { return m_state.kind == AccountSyncState::Kind::syncing; }

Q_SIGNALS:
    void changed();

private:
    void refresh();

    AccountSyncState m_state;
    Description m_description;
    // "Synced 5 minutes ago" ages while it is shown.
    QTimer m_clock;
};
