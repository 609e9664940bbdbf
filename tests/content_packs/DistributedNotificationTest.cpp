#include "StoreDoubles.h"
#include "platform/PlatformServices.h"

#include <QDBusConnection>
#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;

// Collects what the suite's applications are told on the session bus.
class NotificationListener : public QObject {
    Q_OBJECT

public:
    QStringList names;
    QElapsedTimer sinceStart;
    qint64 firstArrival = -1;

public Q_SLOTS:
    void posted(const QString& name) {
        if (firstArrival < 0)
            firstArrival = sinceStart.elapsed();
        names.append(name);
    }
};

// Handing over to Vantor Director's Content Pack library really reaches the session bus: a
// private bus daemon, started here, carries the signal to a second connection that listens.
class DistributedNotificationTest : public QObject {
    Q_OBJECT

    QProcess m_bus;
    QString m_address;

private Q_SLOTS:
    void initTestCase() {
        m_bus.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address"_s});
        QVERIFY2(m_bus.waitForStarted(), "dbus-daemon is not installed");
        QVERIFY(QTest::qWaitFor([&] { return m_bus.canReadLine(); }, 10000));
        m_address = QString::fromUtf8(m_bus.readLine().trimmed());
        // Before anything in this process opens the session bus.
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());
    }

    void cleanupTestCase() {
        m_bus.terminate();
        m_bus.waitForFinished();
    }

    void openingThePackLibraryPostsTheNotificationAfterADelay() {
        QDBusConnection listening = QDBusConnection::connectToBus(m_address, u"listener"_s);
        QVERIFY(listening.isConnected());
        NotificationListener listener;
        QVERIFY(listening.connect(QString(), u"/nz/co/halvex/Vantor"_s,
                                  u"nz.co.halvex.Vantor.Notifications"_s, u"Posted"_s, &listener,
                                  SLOT(posted(QString))));

        StoreFixture fixture;
        fixture.answerStartUp({fixture.director(u"2.5.0"_s, u"127"_s), fixture.creator()});
        LaunchCollaborators collaborators = fixture.collaborators();
        collaborators.notifier = PlatformServices::makeDistributedNotifier();
        LaunchStore store(collaborators);
        auto start = store.start();
        QVERIFY(finishes(start));

        listener.sinceStart.start();
        QVERIFY(finishes(store.openContentPackManagement()));
        QVERIFY(QTest::qWaitFor([&] { return !listener.names.isEmpty(); }, 5000));
        QCOMPARE(listener.names,
                 QStringList{u"nz.co.halvex.VantorDirector.OpenContentPackLibrary"_s});
        QVERIFY(listener.firstArrival >= 390);
        QCOMPARE(fixture.workspace->openedURLs.size(), 1);
        QDBusConnection::disconnectFromBus(u"listener"_s);
    }
};

QTEST_GUILESS_MAIN(DistributedNotificationTest)
#include "DistributedNotificationTest.moc"
