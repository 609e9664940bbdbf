#pragma once

#include "ScriptedCalls.h"
#include "store/LaunchCollaborators.h"
#include "store/LaunchStore.h"

#include <QTemporaryDir>

// Service doubles for the store's flows. Each operation is a ScriptedCalls that the test answers
// or holds; nothing here touches the network, the disk or the desktop.

class ScriptedDiscovery : public ApplicationDiscovering {
public:
    ScriptedCalls<QList<InstalledApp>> discover{"discoverApplications"};
    QCoro::Task<QList<InstalledApp>> discoverApplications() override { return discover.call(); }
};

class ScriptedReleaseChecker : public ReleaseChecking {
public:
    ScriptedCalls<std::optional<AvailableApplicationRelease>> latest{"latestRelease"};
    QCoro::Task<std::optional<AvailableApplicationRelease>> latestRelease() override {
        return latest.call();
    }
};

class ScriptedUpdater : public ApplicationUpdating {
public:
    ScriptedUpdater() { prepare.answerWith(Done{}); }
    // Preparing answers at once unless the test holds it; the exchange is the test's to script.
    ScriptedCalls<Done> prepare{"prepareUpdate"};
    ScriptedCalls<Done> install{"installPrepared"};
    // The releases prepared, in order.
    QList<AvailableApplicationRelease> releases;
    // The control of the latest preparation, for the test to drive.
    TransferControl control;
    QCoro::Task<> installUpdate(AvailableApplicationRelease release, QUrl bundle, QStringList,
                                TransferControl control) override;
    QCoro::Task<PreparedRelease> prepareUpdate(AvailableApplicationRelease release, QUrl bundle,
                                               QStringList, TransferControl control) override;
    QCoro::Task<std::optional<PreparedRelease>> preparedRelease(AvailableApplicationRelease,
                                                                QUrl) override {
        co_return std::nullopt;
    }
    QCoro::Task<> installPrepared(PreparedRelease, QUrl, QStringList) override {
        co_await install.call();
    }
    QCoro::Task<> discardPrepared(QUrl) override { co_return; }
};

class ScriptedCatalogue : public CatalogueProviding {
public:
    ScriptedCalls<QList<ContentPack>> load{"loadCatalogue"};
    QCoro::Task<QList<ContentPack>> loadCatalogue() override { return load.call(); }
};

class ScriptedInstaller : public ContentPackInstalling {
public:
    ScriptedCalls<Done> installCalls{"install"};
    ScriptedCalls<QHash<QString, QString>> versions{"installedPackVersions"};
    // The control of the latest install, for the test to drive.
    TransferControl control;
    QCoro::Task<> install(QString, LaunchContentPackManifest, TransferControl latest) override {
        control = std::move(latest);
        co_await installCalls.call();
    }
    QCoro::Task<QHash<QString, QString>> installedPackVersions() override {
        return versions.call();
    }
};

class ScriptedAccountProvider : public WebsiteAccountProviding {
public:
    ScriptedCalls<WebsiteAccount> signInCalls{"signIn"};
    ScriptedCalls<Done> signOutCalls{"signOut"};
    ScriptedCalls<WebsiteAccount> refreshCalls{"refreshAccount"};
    ScriptedCalls<LaunchContentPackManifest> manifestCalls{"downloadContentPackManifest"};

    QCoro::Task<WebsiteAccount> signIn() override { return signInCalls.call(); }
    QCoro::Task<> signOut() override { co_await signOutCalls.call(); }
    QCoro::Task<WebsiteAccount> refreshAccount() override { return refreshCalls.call(); }
    QCoro::Task<LaunchContentPackManifest> downloadContentPackManifest() override {
        return manifestCalls.call();
    }
};

class MemorySnapshotCache : public AccountSnapshotCaching {
public:
    std::optional<LaunchAccountSnapshot> stored;
    bool failsToLoad = false;
    bool failsToSave = false;
    int loads = 0;
    int saves = 0;
    int clears = 0;

    std::optional<LaunchAccountSnapshot> load() override;
    void save(const LaunchAccountSnapshot& snapshot) override;
    void clear() override {
        ++clears;
        stored.reset();
    }
};

class RecordingWorkspace : public Workspace {
    Q_OBJECT

public:
    QList<RunningApplication> running;
    bool terminateSucceeds = true;
    QList<QUrl> opened;
    QList<QUrl> revealed;
    QList<std::pair<QUrl, QUrl>> openedURLs;
    QList<RunningApplication> terminated;

    std::optional<QUrl> urlForApplication(const QString&) const override { return std::nullopt; }
    QList<RunningApplication> runningApplications(const QString& bundleIdentifier) const override;
    bool terminate(const RunningApplication& application) override {
        terminated.append(application);
        return terminateSucceeds;
    }
    void openApplication(const QUrl& bundle) override { opened.append(bundle); }
    QCoro::Task<> openURL(QUrl url, QUrl application, OpenOptions) override {
        openedURLs.append({url, application});
        co_return;
    }
    void revealInFileBrowser(const QUrl& bundle) override { revealed.append(bundle); }

    void simulateLaunch() { Q_EMIT applicationLaunched(); }
    void simulateTermination() { Q_EMIT applicationTerminated(); }
};

class ScriptedLocationChooser : public ApplicationLocationChooser {
public:
    ScriptedCalls<std::optional<QUrl>> choose{"chooseApplication"};
    QList<Request> requests;
    QCoro::Task<std::optional<QUrl>> chooseApplication(Request request) override {
        requests.append(request);
        co_return co_await choose.call();
    }
};

class RecordingNotifier : public DistributedNotifier {
public:
    QStringList posted;
    void post(const QString& name) override { posted.append(name); }
};

// A store built on doubles, with its settings in a throwaway folder and a clock the test moves.
class StoreFixture {
public:
    explicit StoreFixture(LaunchConfiguration configuration = LaunchConfiguration::production());

    QTemporaryDir folder;
    LaunchConfiguration configuration;
    QDateTime clock = QDateTime::fromString(QStringLiteral("2026-11-01T09:00:00Z"), Qt::ISODate);
    std::shared_ptr<ScriptedDiscovery> discovery = std::make_shared<ScriptedDiscovery>();
    std::shared_ptr<ScriptedReleaseChecker> releaseChecker =
        std::make_shared<ScriptedReleaseChecker>();
    std::shared_ptr<ScriptedUpdater> updater = std::make_shared<ScriptedUpdater>();
    std::shared_ptr<ScriptedCatalogue> catalogue = std::make_shared<ScriptedCatalogue>();
    std::shared_ptr<ScriptedInstaller> installer = std::make_shared<ScriptedInstaller>();
    std::shared_ptr<ScriptedAccountProvider> accountProvider =
        std::make_shared<ScriptedAccountProvider>();
    std::shared_ptr<ScriptedAccountProvider> demoAccountProvider =
        std::make_shared<ScriptedAccountProvider>();
    std::shared_ptr<MemorySnapshotCache> snapshotCache = std::make_shared<MemorySnapshotCache>();
    std::shared_ptr<RecordingWorkspace> workspace = std::make_shared<RecordingWorkspace>();
    std::shared_ptr<ScriptedLocationChooser> locationChooser =
        std::make_shared<ScriptedLocationChooser>();
    std::shared_ptr<RecordingNotifier> notifier = std::make_shared<RecordingNotifier>();
    std::shared_ptr<BrowserSignIn> browserSignIn; // none unless a test needs one
    std::shared_ptr<QSettings> settings;

    // Leaves out the services whose endpoints the configuration lacks, as production does.
    LaunchCollaborators collaborators();
    std::unique_ptr<LaunchStore> makeStore() {
        return std::make_unique<LaunchStore>(collaborators());
    }

    // Answers every call of an uneventful start-up at once: these applications, no release, this
    // catalogue, nothing installed, and the account (if any) refreshed unchanged.
    void answerStartUp(QList<InstalledApp> apps = {}, QList<ContentPack> catalogue = {},
                       std::optional<WebsiteAccount> account = std::nullopt);

    // Production-shaped records: the Director found at a path, the Creator never found.
    InstalledApp director(const QString& version = QStringLiteral("2.4.1"),
                          const QString& build = QStringLiteral("2410")) const;
    InstalledApp creator() const { return notFound(configuration.creator); }
    InstalledApp missingDirector() const { return notFound(configuration.director); }

private:
    InstalledApp notFound(const LaunchConfiguration::Product& product) const;
};

ContentPack makePack(const QString& id, const QString& name, const QString& summary = {},
                     std::optional<QString> version = std::nullopt,
                     Launch::PackInstallation installation = Launch::PackInstallation::unavailable);

// A Director release, with where to download it.
inline AvailableApplicationRelease makeRelease(const QString& version,
                                               std::optional<QString> build = std::nullopt) {
    return {version, std::move(build),
            QUrl(QStringLiteral("https://downloads.example.com/director-2.5.0.zip"))};
}

// JSON written with single quotes, which read better inside C++ strings.
inline QByteArray json(const char* text) {
    return QByteArray(text).replace('\'', '"');
}

// Waits for an eagerly started task (held or temporary) without blocking the event loop.
template <typename Task>
bool finishes(Task&& task, int milliseconds = 5000) {
    return QTest::qWaitFor([&] { return task.isReady(); }, milliseconds);
}
