#include "platform/linux/LinuxWorkspace.h"

#include "BundleProcesses.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "platform/PlatformServices.h"
#include "platform/linux/ProcessTable.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>
#include <csignal>

using namespace Qt::StringLiterals;

namespace {

constexpr int generousTimeout = 15000;

// Identifiers of this run only, so that nothing else running on the machine can answer.
const QString runTag = QUuid::createUuid().toString(QUuid::Id128);
const QString directorID = u"nz.co.halvex.test.Director-"_s + runTag;
const QString creatorID = u"nz.co.halvex.test.Creator-"_s + runTag;

// What the workspace reported, each report with the ids of this test's copies of a bundle that
// run when it arrives: every bundle process of the machine is reported, other people's too.
struct Reports {
    QList<QList<qint64>> afterLaunch;
    QList<QList<qint64>> afterTermination;
};

void record(LinuxWorkspace& workspace, const QString& identifier, Reports& reports) {
    const auto ours = [&workspace, identifier] {
        QList<qint64> ids;
        for (const RunningApplication& running : workspace.runningApplications(identifier))
            ids.append(running.processId);
        return ids;
    };
    QObject::connect(&workspace, &Workspace::applicationLaunched, &workspace,
                     [&reports, ours] { reports.afterLaunch.append(ours()); });
    QObject::connect(&workspace, &Workspace::applicationTerminated, &workspace,
                     [&reports, ours] { reports.afterTermination.append(ours()); });
}

} // namespace

// Stands in for the desktop's file manager on a private session bus.
class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QList<QStringList> shown;

public Q_SLOTS:
    void ShowItems(const QStringList& uris, const QString&) { shown.append(uris); }
};

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

class LinuxWorkspaceTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    QProcess m_bus;
    QList<QProcess*> m_processes;

    // A child process started straight from a bundle's executable.
    QProcess* startFrom(const QUrl& bundle, const QStringList& arguments = {}) {
        auto* process = new QProcess(this);
        m_processes.append(process);
        process->start(BundleProcesses::executablePath(bundle, BundleSpec{}), arguments);
        if (!process->waitForStarted(generousTimeout))
            qFatal("could not start a process from %s", qPrintable(bundle.toLocalFile()));
        return process;
    }

    QString root(const QString& name) {
        const QString path = m_folder.filePath(name);
        QDir().mkpath(path);
        return path;
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_folder.isValid());
        // A private session bus, so that nothing reaches the desktop of whoever runs the tests.
        const QString daemon = QStandardPaths::findExecutable(u"dbus-daemon"_s);
        if (daemon.isEmpty())
            return;
        m_bus.start(daemon, {u"--session"_s, u"--nofork"_s, u"--print-address=1"_s});
        QVERIFY(m_bus.waitForStarted(generousTimeout));
        QVERIFY(m_bus.waitForReadyRead(generousTimeout));
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.readLine().trimmed());
    }

    void cleanup() {
        for (QProcess* process : std::as_const(m_processes)) {
            process->kill();
            process->waitForFinished(generousTimeout);
            delete process;
        }
        m_processes.clear();
        // Copies started detached are nobody's children here: end whatever runs from the
        // test's folder, found without the code under test.
        for (const qint64 processId : ProcessTable::processIds()) {
            if (readFile(u"/proc/%1/cmdline"_s.arg(processId)).contains(m_folder.path().toUtf8()))
                ::kill(pid_t(processId), SIGKILL);
        }
    }

    void cleanupTestCase() {
        if (m_bus.state() != QProcess::NotRunning) {
            m_bus.terminate();
            m_bus.waitForFinished(generousTimeout);
        }
    }

    void runningCopiesAreTheBundlesTheyRunFrom() {
        const BundleSpec director = BundleProcesses::waitingBundle(directorID);
        const QUrl running = writeBundle(root(u"system"_s), u"Vantor Director.app"_s, director);
        writeBundle(root(u"home"_s), u"Vantor Director.app"_s, director); // an idle copy
        QVERIFY(BundleProcesses::useCompiledExecutable(running, director));
        const QUrl script = writeBundle(root(u"system"_s), u"Vantor Creator.app"_s,
                                        BundleProcesses::waitingBundle(creatorID));
        // Not a bundle process: its executable lies outside any "Contents/MacOS/".
        QProcess* plain = new QProcess(this);
        m_processes.append(plain);
        plain->start(QStandardPaths::findExecutable(u"sleep"_s), {u"600"_s});
        QVERIFY(plain->waitForStarted(generousTimeout));

        LinuxWorkspace workspace;
        QVERIFY(workspace.runningApplications(directorID).isEmpty());

        const qint64 directorProcess = startFrom(running, {u"600"_s})->processId();
        const qint64 scriptProcess = startFrom(script)->processId();

        // Only the copy that runs counts; the idle copy with the same identifier does not.
        QCOMPARE(workspace.runningApplications(directorID),
                 (QList<RunningApplication>{{directorProcess, directorID, running}}));
        // A script started through its "#!" line runs as its interpreter, yet belongs to its
        // bundle.
        QCOMPARE(workspace.runningApplications(creatorID),
                 (QList<RunningApplication>{{scriptProcess, creatorID, script}}));
        QVERIFY(workspace.runningApplications(u"nz.co.halvex.test.Unknown-"_s + runTag).isEmpty());
    }

    void terminateAsksOnlyTheGivenCopyToQuit() {
        const QString folder = root(u"terminate"_s);
        const BundleSpec director = BundleProcesses::waitingBundle(directorID);
        const QUrl bundle = writeBundle(folder, u"Vantor Director.app"_s, director);
        // Copies of bundles whose paths begin with the given bundle's path: one nested inside
        // it, one a sibling with a longer name.
        QList<QProcess*> copies;
        for (const QUrl& from :
             {bundle,
              writeBundle(folder, u"Vantor Director.app/Contents/Helpers/Inner.app"_s, director),
              writeBundle(folder, u"Vantor Director.app.old"_s, director)}) {
            QVERIFY(BundleProcesses::useCompiledExecutable(from, director));
            copies.append(startFrom(from, {u"600"_s}));
        }
        LinuxWorkspace workspace;
        const RunningApplication copy{copies[0]->processId(), directorID, bundle};

        // A process id that now belongs to another program, ids that kill() reads as groups, and
        // the copies of the other bundles.
        for (const qint64 other : {QCoreApplication::applicationPid(), qint64(0), qint64(-1),
                                   copies[1]->processId(), copies[2]->processId()})
            QVERIFY(!workspace.terminate({other, directorID, bundle}));
        QVERIFY(!copies[2]->waitForFinished(300));
        for (const QProcess* process : std::as_const(copies))
            QCOMPARE(process->state(), QProcess::Running);

        QVERIFY(workspace.terminate(copy));
        QVERIFY(copies[0]->waitForFinished(generousTimeout));
        QCOMPARE(copies[0]->exitStatus(), QProcess::CrashExit);
        QVERIFY(!workspace.runningApplications(directorID).contains(copy));
        QVERIFY(!workspace.terminate(copy));
    }

    void aBundleReachedThroughALinkIsTheOneItsCopiesRunFrom_data() {
        QTest::addColumn<QString>("linked");
        QTest::addColumn<bool>("compiled");
        // The path to the bundle as the caller spells it, relative to the link "linked", which
        // points at the folder "real" that holds the bundle.
        QTest::newRow("linked folder, program") << u"linked/Vantor Director.app"_s << true;
        QTest::newRow("linked folder, script") << u"linked/Vantor Director.app"_s << false;
        QTest::newRow("linked bundle, script") << u"Director link.app"_s << false;
    }

    void aBundleReachedThroughALinkIsTheOneItsCopiesRunFrom() {
        QFETCH(QString, linked);
        QFETCH(bool, compiled);
        const QString folder = root(u"links-"_s + QUuid::createUuid().toString(QUuid::Id128));
        const BundleSpec director = BundleProcesses::quietBundle(directorID);
        const QUrl real = writeBundle(folder + u"/real"_s, u"Vantor Director.app"_s, director);
        QVERIFY(BundleProcesses::makeQuiet(real, director));
        QVERIFY(QFile::link(folder + u"/real"_s, folder + u"/linked"_s));
        QVERIFY(QFile::link(real.toLocalFile(), folder + u"/Director link.app"_s));
        const QUrl throughLink = QUrl::fromLocalFile(folder + u'/' + linked);
        if (compiled)
            QVERIFY(BundleProcesses::useCompiledExecutable(real, director));
        // Started through the link, as a user opening it from the linked folder would.
        QProcess* process =
            startFrom(throughLink, compiled ? QStringList{u"600"_s} : QStringList{});
        LinuxWorkspace workspace;

        QCOMPARE(workspace.runningApplications(directorID),
                 (QList<RunningApplication>{{process->processId(), directorID, real}}));
        // Opening it again by either path starts no second copy.
        workspace.openApplication(throughLink);
        workspace.openApplication(real);
        QCOMPARE(workspace.runningApplications(directorID).size(), 1);

        QVERIFY(workspace.terminate({process->processId(), directorID, throughLink}));
        QVERIFY(process->waitForFinished(generousTimeout));
    }

    void aBundleProcessThatExecsElsewhereHasEnded() {
        BundleSpec spec = BundleProcesses::waitingBundle(directorID);
        // Runs from the bundle until told to (without starting any other process meanwhile),
        // then becomes a program outside any bundle.
        spec.script = u"read go\nexec sleep 600\n"_s;
        const QUrl bundle = writeBundle(root(u"exec"_s), u"Vantor Director.app"_s, spec);
        // Running before the workspace first looks, so it is no young process that is looked at
        // again anyway: only the re-check of known bundle processes can notice the change.
        QProcess* process = startFrom(bundle);
        Reports reports;
        LinuxWorkspace workspace;
        record(workspace, directorID, reports);
        QTRY_COMPARE_WITH_TIMEOUT(workspace.runningApplications(directorID).size(), 1,
                                  generousTimeout);
        QCoreApplication::processEvents();
        QVERIFY(!reports.afterTermination.contains(QList<qint64>{}));

        process->write("go\n");
        QTRY_VERIFY_WITH_TIMEOUT(reports.afterTermination.contains(QList<qint64>{}),
                                 generousTimeout);
        QCOMPARE(process->state(), QProcess::Running);
    }

    void launchesAndTerminationsOfBundleProcessesAreReported() {
        const QUrl bundle = writeBundle(root(u"watch"_s), u"Vantor Director.app"_s,
                                        BundleProcesses::waitingBundle(directorID));
        Reports reports;
        LinuxWorkspace workspace;
        record(workspace, directorID, reports);
        // Another listener leaving neither blocks nor stops the watch for those that stay.
        QObject::disconnect(QObject::connect(&workspace, &Workspace::applicationLaunched, [] {}));

        QProcess* first = startFrom(bundle);
        QTRY_VERIFY_WITH_TIMEOUT(reports.afterLaunch.contains(QList<qint64>{first->processId()}),
                                 generousTimeout);

        reports.afterTermination.clear();
        first->terminate();
        QTRY_VERIFY_WITH_TIMEOUT(reports.afterTermination.contains(QList<qint64>{}),
                                 generousTimeout);

        reports.afterLaunch.clear();
        const qint64 second = startFrom(bundle)->processId();
        QTRY_VERIFY_WITH_TIMEOUT(reports.afterLaunch.contains(QList<qint64>{second}),
                                 generousTimeout);
    }

    void openingStartsTheBundleExecutableWithTheURL() {
        const QString folder = root(u"open"_s);
        BundleSpec director = BundleProcesses::waitingBundle(directorID);
        director.executable = u"Vantor Director"_s;
        const QUrl bundle = writeBundle(folder, u"Vantor Director.app"_s, director);
        const QString arguments =
            BundleProcesses::executablePath(bundle, director) + u".arguments"_s;
        LinuxWorkspace workspace;

        workspace.openApplication(bundle);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(arguments), generousTimeout);
        QCOMPARE(readFile(arguments), "\n");
        QTRY_COMPARE_WITH_TIMEOUT(workspace.runningApplications(directorID).size(), 1,
                                  generousTimeout);
        QVERIFY(workspace.terminate(workspace.runningApplications(directorID).first()));
        QTRY_VERIFY_WITH_TIMEOUT(workspace.runningApplications(directorID).isEmpty(),
                                 generousTimeout);

        QFile::remove(arguments);
        const QUrl address(u"vantordirector://content-packs"_s);
        QVERIFY(!outcomeOf(workspace.openURL(address, bundle, {})).error);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(arguments), "vantordirector://content-packs\n",
                                  generousTimeout);

        // Without its executable a bundle cannot be opened, and the caller hears of it.
        QFile::remove(BundleProcesses::executablePath(bundle, director));
        const auto failed = outcomeOf(workspace.openURL(address, bundle, {}));
        QVERIFY(failed.error);
        QCOMPARE(failed.error->domain(), LaunchError::Domain::file);
    }

    void openingARunningApplicationStartsNoSecondCopy() {
        const BundleSpec director = BundleProcesses::quietBundle(directorID);
        const QUrl bundle = writeBundle(root(u"single"_s), u"Vantor Director.app"_s, director);
        const QUrl elsewhere =
            writeBundle(root(u"single-other"_s), u"Vantor Director.app"_s, director);
        QVERIFY(BundleProcesses::makeQuiet(bundle, director));
        QVERIFY(BundleProcesses::makeQuiet(elsewhere, director));
        LinuxWorkspace workspace;

        workspace.openApplication(bundle);
        // A detached start returns once the copy has reached its program, so it is visible now.
        const QList<RunningApplication> first = workspace.runningApplications(directorID);
        QCOMPARE(first.size(), 1);
        workspace.openApplication(bundle);
        QCOMPARE(workspace.runningApplications(directorID), first);

        // Another bundle with the same identifier is another application, and starts.
        workspace.openApplication(elsewhere);
        QCOMPARE(workspace.runningApplications(directorID).size(), 2);
    }

    void revealAsksTheFileManagerAndOtherwiseOpensTheFolder() {
        if (m_bus.state() != QProcess::Running)
            QSKIP("dbus-daemon is not installed");
        const QString folder = root(u"reveal"_s);
        const QUrl bundle = writeBundle(folder, u"Vantor Director.app"_s,
                                        BundleProcesses::waitingBundle(directorID));
        const QString opened = m_folder.filePath(u"opened-folder"_s);
        const QString opener = m_folder.filePath(u"open-folder"_s);
        writeFile(opener, "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + opened.toUtf8() + "'\n");
        QVERIFY(QFile::setPermissions(opener, QFile::ReadOwner | QFile::ExeOwner));
        LinuxWorkspace workspace(opener);

        // No file manager on the bus: the folder that holds the bundle opens instead.
        workspace.revealInFileBrowser(bundle);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(opened), folder.toUtf8() + '\n', generousTimeout);

        QDBusConnection fileManagerBus = QDBusConnection::connectToBus(
            QString::fromUtf8(qgetenv("DBUS_SESSION_BUS_ADDRESS")), u"file-manager"_s);
        FakeFileManager fileManager;
        QVERIFY(fileManagerBus.registerObject(u"/org/freedesktop/FileManager1"_s, &fileManager,
                                              QDBusConnection::ExportAllSlots));
        QVERIFY(fileManagerBus.registerService(u"org.freedesktop.FileManager1"_s));
        QFile::remove(opened);

        workspace.revealInFileBrowser(bundle);
        QTRY_COMPARE_WITH_TIMEOUT(fileManager.shown.size(), 1, generousTimeout);
        QCOMPARE(fileManager.shown.first().size(), 1);
        QCOMPARE(QUrl(fileManager.shown.first().first()), bundle);
        QVERIFY(!QFile::exists(opened));
        QDBusConnection::disconnectFromBus(u"file-manager"_s);
    }

    // Handing over to Vantor Director's Content Pack library reaches the session bus, where a
    // second connection listens.
    void openingThePackLibraryPostsTheNotificationAfterADelay() {
        if (m_bus.state() != QProcess::Running)
            QSKIP("dbus-daemon is not installed");
        QDBusConnection listening = QDBusConnection::connectToBus(
            QString::fromUtf8(qgetenv("DBUS_SESSION_BUS_ADDRESS")), u"listener"_s);
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
        QVERIFY(finishes(store.start()));

        listener.sinceStart.start();
        QVERIFY(finishes(store.packFlows().openContentPackManagement()));
        QVERIFY(QTest::qWaitFor([&] { return !listener.names.isEmpty(); }, 5000));
        QCOMPARE(listener.names,
                 QStringList{u"nz.co.halvex.VantorDirector.OpenContentPackLibrary"_s});
        // After the 400 ms wait, which a coarse timer may end up to 5 % early.
        QVERIFY(listener.firstArrival >= 380);
        QCOMPARE(fixture.workspace->openedURLs.size(), 1);
        QDBusConnection::disconnectFromBus(u"listener"_s);
    }
};

QTEST_GUILESS_MAIN(LinuxWorkspaceTest)
#include "LinuxWorkspaceTest.moc"
