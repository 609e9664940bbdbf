#include "platform/linux/LocalSocketLauncherInstance.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

// A second start finds the first launcher, asks it to show itself and ends; nothing left behind
// by a launcher that ended keeps the next one from starting.
class LauncherInstanceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void laterStartsShowTheFirstLauncher() {
        QTemporaryDir folder;
        const QString socket = folder.filePath(u"instance"_s);
        LocalSocketLauncherInstance first(socket);
        QVERIFY(first.claim());
        QSignalSpy shows(&first, &LauncherInstance::activationRequested);

        QVERIFY(!LocalSocketLauncherInstance(socket).claim());
        QVERIFY(!LocalSocketLauncherInstance(socket).claim());
        QTRY_COMPARE(shows.count(), 2);
        // Another home is another launcher.
        QVERIFY(LocalSocketLauncherInstance(folder.filePath(u"other"_s)).claim());
    }

    void theNameOutlivesALauncherThatEnded() {
        QTemporaryDir folder;
        const QString socket = folder.filePath(u"instance"_s);
        {
            LocalSocketLauncherInstance ended(socket);
            QVERIFY(ended.claim());
        }
        QVERIFY(LocalSocketLauncherInstance(socket).claim());

        // A crashed launcher leaves its socket file behind.
        QFile leftover(folder.filePath(u"crashed"_s));
        QVERIFY(leftover.open(QIODevice::WriteOnly));
        leftover.close();
        LocalSocketLauncherInstance next(leftover.fileName());
        QVERIFY(next.claim());
        QVERIFY(!LocalSocketLauncherInstance(leftover.fileName()).claim());
    }
};

QTEST_GUILESS_MAIN(LauncherInstanceTest)
#include "LauncherInstanceTest.moc"
