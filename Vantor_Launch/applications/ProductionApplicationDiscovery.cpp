#include "applications/ProductionApplicationDiscovery.h"

#include "platform/BundleMetadata.h"

#include <QCoroFuture>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QSet>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>

using namespace Qt::StringLiterals;
using Launch::InstallationState;

namespace {

const QString systemApplicationsFolder = u"/Applications"_s;

// What the workspace said about one product, gathered on the main thread for the worker.
struct WorkspaceAnswers {
    QList<QUrl> urls;                      // in the order of the product's identifiers
    QHash<QString, QSet<QString>> running; // identifier -> standardized bundle paths
};

struct Candidate {
    QUrl url;
    std::optional<ApplicationBundleMetadata> metadata; // read already by the folder scan
};

struct DiscoveredBundle {
    QUrl url;
    ApplicationBundleMetadata metadata;
    bool isRunning = false;
};

QString standardizedPath(const QUrl& url) {
    return QDir::cleanPath(url.toLocalFile());
}

bool isVerified(const std::optional<ApplicationBundleMetadata>& metadata,
                const LaunchConfiguration::Product& product) {
    return metadata && metadata->bundleIdentifier &&
           ProductionApplicationDiscovery::isVerifiedIdentifier(*metadata->bundleIdentifier,
                                                                product);
}

// The bundles directly inside a folder, in the order the folder lists them; hidden entries and
// subfolders' contents are not looked at. A folder that cannot be listed gives nothing.
void scanFolder(const QString& folder, const LaunchConfiguration::Product& product,
                QList<Candidate>& candidates) {
    QDirIterator entries(folder, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System);
    while (entries.hasNext()) {
        const QString path = entries.next();
        if (entries.fileInfo().suffix().toLower() != u"app"_s)
            continue;
        const QUrl url = QUrl::fromLocalFile(path);
        auto metadata = readBundleMetadata(url);
        if (isVerified(metadata, product))
            candidates.append({url, std::move(metadata)});
    }
}

QList<Candidate> collectCandidates(const LaunchConfiguration::Product& product,
                                   const LaunchConfiguration& configuration,
                                   const WorkspaceAnswers& answers,
                                   const ProductionApplicationDiscovery::Locations& locations) {
    // Vantor Creator ships inside Vantor Director and is never looked up by itself.
    if (product.name == configuration.creator.name)
        return {};

    QList<Candidate> found;
    for (const QUrl& url : answers.urls)
        found.append({url, std::nullopt});
    scanFolder(locations.systemApplications, product, found);
    scanFolder(QDir(locations.home).filePath(u"Applications"_s), product, found);

    QList<Candidate> unique;
    QSet<QString> seen;
    for (Candidate& candidate : found) {
        const QString path = bundleIdentity(candidate.url);
        if (seen.contains(path))
            continue;
        seen.insert(path);
        unique.append(std::move(candidate));
    }

    const QUrl home = QUrl::fromLocalFile(locations.home);
    std::stable_sort(unique.begin(), unique.end(), [&](const Candidate& a, const Candidate& b) {
        return ProductionApplicationDiscovery::locationRank(a.url, home,
                                                            locations.systemApplications) <
               ProductionApplicationDiscovery::locationRank(b.url, home,
                                                            locations.systemApplications);
    });
    return unique;
}

std::optional<DiscoveredBundle>
chooseBundle(const LaunchConfiguration::Product& product, const LaunchConfiguration& configuration,
             const WorkspaceAnswers& answers,
             const ProductionApplicationDiscovery::Locations& locations) {
    std::optional<DiscoveredBundle> firstKept;
    for (Candidate& candidate : collectCandidates(product, configuration, answers, locations)) {
        // A workspace answer can point at a bundle that has changed since: read it now.
        const auto metadata =
            candidate.metadata ? candidate.metadata : readBundleMetadata(candidate.url);
        if (!isVerified(metadata, product))
            continue;
        const bool isRunning = answers.running.value(*metadata->bundleIdentifier)
                                   .contains(bundleIdentity(candidate.url));
        DiscoveredBundle bundle{candidate.url, *metadata, isRunning};
        if (isRunning)
            return bundle;
        if (!firstKept)
            firstKept = std::move(bundle);
    }
    return firstKept;
}

InstalledApp makeRecord(const LaunchConfiguration::Product& product,
                        const std::optional<DiscoveredBundle>& chosen, const QDateTime& now) {
    InstalledApp app;
    app.id = product.name;
    app.name = product.name;
    app.logoAsset = product.logoAsset;
    app.lastChecked = now;
    if (!chosen) {
        app.bundleIdentifier = product.bundleIdentifiers.value(0);
        app.state = InstallationState::notInstalled;
        return app;
    }
    app.bundleIdentifier = *chosen->metadata.bundleIdentifier;
    app.path = chosen->url;
    app.installedVersion = chosen->metadata.version;
    app.build = chosen->metadata.build;
    app.isRunning = chosen->isRunning;
    app.state = chosen->isRunning ? InstallationState::running : InstallationState::stale;
    return app;
}

WorkspaceAnswers askWorkspace(const Workspace* workspace,
                              const LaunchConfiguration::Product& product,
                              const LaunchConfiguration& configuration) {
    WorkspaceAnswers answers;
    if (!workspace || product.name == configuration.creator.name)
        return answers;
    for (const QString& identifier : product.bundleIdentifiers) {
        if (const auto url = workspace->urlForApplication(identifier))
            answers.urls.append(*url);
        QSet<QString>& paths = answers.running[identifier];
        for (const RunningApplication& running : workspace->runningApplications(identifier))
            paths.insert(bundleIdentity(running.bundleURL));
    }
    return answers;
}

using Chosen = std::pair<std::optional<DiscoveredBundle>, std::optional<DiscoveredBundle>>;

Chosen chooseBoth(const LaunchConfiguration& configuration, const WorkspaceAnswers& director,
                  const WorkspaceAnswers& creator,
                  const ProductionApplicationDiscovery::Locations& locations) {
    return {chooseBundle(configuration.director, configuration, director, locations),
            chooseBundle(configuration.creator, configuration, creator, locations)};
}

bool isInside(const QString& path, const QString& folder) {
    return path.startsWith(QDir::cleanPath(folder) + u'/');
}

} // namespace

ProductionApplicationDiscovery::Locations ProductionApplicationDiscovery::Locations::standard() {
    return {systemApplicationsFolder, QDir::homePath()};
}

ProductionApplicationDiscovery::ProductionApplicationDiscovery(LaunchConfiguration configuration,
                                                               std::shared_ptr<Workspace> workspace,
                                                               Locations locations)
    : m_configuration(std::move(configuration))
    , m_workspace(std::move(workspace))
    , m_locations(std::move(locations)) {}

QCoro::Task<QList<InstalledApp>> ProductionApplicationDiscovery::discoverApplications() {
    // Copies: nothing after the wait touches this object, which may be gone by then.
    const LaunchConfiguration configuration = m_configuration;
    const WorkspaceAnswers director =
        askWorkspace(m_workspace.get(), configuration.director, configuration);
    const WorkspaceAnswers creator =
        askWorkspace(m_workspace.get(), configuration.creator, configuration);

    const Chosen chosen =
        co_await QtConcurrent::run(&chooseBoth, configuration, director, creator, m_locations);

    const QDateTime now = QDateTime::currentDateTimeUtc();
    co_return QList<InstalledApp>{makeRecord(configuration.director, chosen.first, now),
                                  makeRecord(configuration.creator, chosen.second, now)};
}

QCoro::Task<QList<QUrl>>
ProductionApplicationDiscovery::candidates(LaunchConfiguration::Product product) {
    const LaunchConfiguration configuration = m_configuration;
    const WorkspaceAnswers answers = askWorkspace(m_workspace.get(), product, configuration);
    const QList<Candidate> found = co_await QtConcurrent::run(&collectCandidates, product,
                                                              configuration, answers, m_locations);
    QList<QUrl> urls;
    for (const Candidate& candidate : found)
        urls.append(candidate.url);
    co_return urls;
}

int ProductionApplicationDiscovery::locationRank(const QUrl& bundle, const QUrl& home) {
    return locationRank(bundle, home, systemApplicationsFolder);
}

int ProductionApplicationDiscovery::locationRank(const QUrl& bundle, const QUrl& home,
                                                 const QString& systemApplications) {
    // The trailing "/" matters: /ApplicationsOld/X.app is not inside /Applications.
    const QString path = standardizedPath(bundle);
    if (isInside(path, systemApplications))
        return 0;
    if (isInside(path, QDir(home.toLocalFile()).filePath(u"Applications"_s)))
        return 1;
    return 2;
}
