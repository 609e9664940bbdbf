#include "applications/ProductionApplicationDiscovery.h"

#include "BundleBuilder.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Launch::InstallationState;

namespace {

const QString directorID = u"nz.co.halvex.VantorDirector"_s;
const QString pellomarID = u"nz.co.halvex.Pellomar"_s;
const QString creatorID = u"nz.co.halvex.Vantor-Creator"_s;

BundleSpec bundle(std::optional<QString> identifier, const QString& version = u"2.4.1"_s,
                  const QString& build = u"2410"_s) {
    return BundleSpec{std::move(identifier), version, build};
}

// The same place written another way, as a workspace may report it.
QUrl otherSpelling(const QUrl& bundle) {
    const QString path = bundle.toLocalFile();
    return QUrl::fromLocalFile(path.section(u'/', 0, -2) + u"/./"_s + path.section(u'/', -1) +
                               u'/');
}

// What discovery found of an application: where, which identifier, version and build, state.
QStringList summary(const InstalledApp& app) {
    return {app.pathText(),  app.bundleIdentifier, app.installedVersionText(),
            app.buildText(), app.stateText(),      app.isRunning ? u"running"_s : u"idle"_s};
}

template <typename T>
T await(QCoro::Task<T> task) {
    auto outcome = outcomeOf(std::move(task));
    if (!outcome.value)
        qFatal("discovery failed");
    return *outcome.value;
}

} // namespace

// A workspace whose lookup by identifier answers what the test says.
class AnsweringWorkspace : public RecordingWorkspace {
    Q_OBJECT

public:
    QHash<QString, QUrl> urls;
    std::optional<QUrl> urlForApplication(const QString& identifier) const override {
        return urls.contains(identifier) ? std::optional<QUrl>(urls.value(identifier))
                                         : std::nullopt;
    }
};

class ProductionApplicationDiscoveryTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_system;
    QString m_home;
    QString m_homeApplications;
    std::shared_ptr<AnsweringWorkspace> m_workspace;
    LaunchConfiguration m_configuration = LaunchConfiguration::production();

    ProductionApplicationDiscovery discovery() {
        return ProductionApplicationDiscovery(m_configuration, m_workspace, {m_system, m_home});
    }

    QString folder(const QString& name) {
        const QString path = m_folder->filePath(name);
        QDir().mkpath(path);
        return path;
    }

private Q_SLOTS:
    void init() {
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
        m_system = folder(u"Applications"_s);
        m_home = folder(u"home"_s);
        m_homeApplications = folder(u"home/Applications"_s);
        m_workspace = std::make_shared<AnsweringWorkspace>();
    }

    void ranksByPlace() {
        const QUrl home = QUrl::fromLocalFile(u"/home/ana"_s);
        const auto rank = [&](const QString& path) {
            return ProductionApplicationDiscovery::locationRank(QUrl::fromLocalFile(path), home);
        };
        QCOMPARE(rank(u"/Applications/Sub/X.app"_s), 0);
        QCOMPARE(rank(u"/home/ana/Applications/../Applications/X.app"_s), 1);
        // Only a path inside the folder counts, not one that merely begins with its name.
        QCOMPARE(rank(u"/ApplicationsOld/X.app"_s), 2);
        QCOMPARE(rank(u"/home/ana/ApplicationsOld/X.app"_s), 2);
    }

    void collectsEachVerifiedCandidateOnceBestPlacedFirst() {
        const auto director = m_configuration.director;
        const QUrl system = writeBundle(m_system, u"Vantor Director.app"_s, bundle(directorID));
        const QUrl upperCase = writeBundle(m_system, u"Y.APP"_s, bundle(directorID));
        const QUrl home = writeBundle(m_homeApplications, u"Pellomar.app"_s, bundle(pellomarID));
        const QUrl elsewhere =
            writeBundle(folder(u"elsewhere"_s), u"Vantor Director.app"_s, bundle(directorID));
        // None of these may be taken from the folders.
        writeBundle(folder(u"Applications/Sub"_s), u"Nested.app"_s, bundle(directorID));
        writeBundle(m_system, u".Hidden.app"_s, bundle(directorID));
        writeBundle(m_system, u"Lower Case.app"_s, bundle(directorID.toLower()));
        writeBundle(m_system, u"Unnamed.app"_s, bundle(std::nullopt));
        writeBundle(m_system, u"Vantor Creator.app"_s, bundle(creatorID));
        writeBundle(m_system, u"Director.zip"_s, bundle(directorID));

        // The workspace reports the folder's bundle again, in another spelling, and a copy that
        // lies outside both folders.
        m_workspace->urls = {{directorID, otherSpelling(system)}, {pellomarID, elsewhere}};
        auto subject = discovery();
        const QList<QUrl> candidates = await(subject.candidates(director));

        // The first spelling seen is kept; rank decides before the order of discovery does.
        QCOMPARE(candidates, QList<QUrl>({otherSpelling(system), upperCase, home, elsewhere}));

        // Vantor Creator is never looked up by itself.
        m_workspace->urls = {{creatorID, system}};
        QVERIFY(await(subject.candidates(m_configuration.creator)).isEmpty());
    }

    void runningCopyWinsOverBetterPlacedIdleCopy() {
        BundleSpec binary = bundle(directorID, u"2.4.1"_s, u"2410"_s);
        binary.binaryPropertyList = true;
        const QUrl idle = writeBundle(m_system, u"Vantor Director.app"_s, binary);
        const QUrl running = writeBundle(m_homeApplications, u"Vantor Director.app"_s,
                                         bundle(pellomarID, u"2.5.0"_s, u"2500"_s));
        const QUrl elsewhere =
            writeBundle(folder(u"elsewhere"_s), u"Vantor Director.app"_s, bundle(directorID));
        writeBundle(m_system, u"Vantor Creator.app"_s, bundle(creatorID));
        m_workspace->urls = {{creatorID, QUrl::fromLocalFile(m_system + u"/Vantor Creator.app"_s)}};
        auto subject = discovery();

        // A copy of the same identifier running from another place does not make this one run.
        m_workspace->running = {{41, directorID, elsewhere}};
        QList<InstalledApp> apps = await(subject.discoverApplications());
        QCOMPARE(apps.size(), 2);
        QCOMPARE(summary(apps[0]), QStringList({idle.toLocalFile(), directorID, u"2.4.1"_s,
                                                u"2410"_s, u"Offline / stale"_s, u"idle"_s}));

        m_workspace->running = {{42, pellomarID, otherSpelling(running)}};
        apps = await(subject.discoverApplications());
        QCOMPARE(apps[0].id, m_configuration.director.name);
        QCOMPARE(summary(apps[0]), QStringList({running.toLocalFile(), pellomarID, u"2.5.0"_s,
                                                u"2500"_s, u"Running"_s, u"running"_s}));
        // Running copies are reported with links resolved; a bundle in a linked folder is the one.
        const QString linkedHome = m_folder->filePath(u"linked-home"_s);
        QVERIFY(QFile::link(m_home, linkedHome));
        m_home = linkedHome;
        m_workspace->running = {{43, pellomarID, running}};
        apps = await(discovery().discoverApplications());
        QCOMPARE(summary(apps[0]).last(), u"running"_s);
        QCOMPARE(apps[0].path->toLocalFile(), linkedHome + u"/Applications/Vantor Director.app"_s);
        // Vantor Creator is not installed, whatever lies on disk.
        QCOMPARE(apps[1].id, m_configuration.creator.name);
        QCOMPARE(summary(apps[1]),
                 QStringList({{}, creatorID, {}, {}, u"Not installed"_s, u"idle"_s}));
    }

    void workspaceAnswersAreVerifiedAgain() {
        // The workspace may point anywhere, even below a folder the scan does not enter.
        const QUrl nested = writeBundle(folder(u"Applications/Sub"_s), u"Vantor Director.app"_s,
                                        bundle(directorID));
        const QUrl unnamed =
            writeBundle(folder(u"elsewhere"_s), u"Vantor Director.app"_s, bundle(std::nullopt));
        m_workspace->urls = {{directorID, nested}, {pellomarID, unnamed}};
        auto subject = discovery();

        QList<InstalledApp> apps = await(subject.discoverApplications());
        QCOMPARE(apps[0].path, nested);
        QCOMPARE(apps[0].state, InstallationState::stale);

        // The bundle has changed its identifier since the workspace recorded it.
        writeBundle(folder(u"Applications/Sub"_s), u"Vantor Director.app"_s,
                    bundle(u"com.example.Other"_s));
        const QDateTime before = QDateTime::currentDateTimeUtc();
        apps = await(subject.discoverApplications());
        QCOMPARE(summary(apps[0]),
                 QStringList({{}, directorID, {}, {}, u"Not installed"_s, u"idle"_s}));
        QVERIFY(!apps[0].path);
        QVERIFY(apps[0].lastChecked && *apps[0].lastChecked >= before);
    }
};

QTEST_GUILESS_MAIN(ProductionApplicationDiscoveryTest)
#include "ProductionApplicationDiscoveryTest.moc"
