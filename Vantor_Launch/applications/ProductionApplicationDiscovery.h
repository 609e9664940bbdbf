#pragma once

#include "applications/ApplicationDiscovering.h"
#include "foundation/LaunchConfiguration.h"
#include "platform/Workspace.h"

#include <memory>

// Finds the installed copy of each managed application: the workspace's answers for its bundle
// identifiers, then the bundles directly inside "/Applications" and "~/Applications". A copy
// that is running wins over a better placed idle one. Only reads; never fails.
class ProductionApplicationDiscovery : public ApplicationDiscovering {
public:
    // Where to look. Tests point both at temporary folders.
    struct Locations {
        QString systemApplications; // "/Applications"
        QString home;               // the user's home folder, holding "Applications"

        static Locations standard();
    };

    ProductionApplicationDiscovery(LaunchConfiguration configuration,
                                   std::shared_ptr<Workspace> workspace,
                                   Locations locations = Locations::standard());

    // The Director's record, then the Creator's. The workspace is asked here, on the main thread;
    // folders and property lists are read on a worker.
    QCoro::Task<QList<InstalledApp>> discoverApplications() override;

    // The bundles that could be the product, best placed first: the workspace's answers and the
    // verified bundles of the two folders, each once, by location rank.
    QCoro::Task<QList<QUrl>> candidates(LaunchConfiguration::Product product);

    // 0 inside "/Applications/", 1 inside "<home>/Applications/", 2 anywhere else.
    static int locationRank(const QUrl& bundle, const QUrl& home);
    static int locationRank(const QUrl& bundle, const QUrl& home,
                            const QString& systemApplications);

    // Exact, case-sensitive membership in the product's identifiers: the one identifier rule.
    static bool isVerifiedIdentifier(const QString& bundleIdentifier,
                                     const LaunchConfiguration::Product& product) {
        return product.isVerifiedIdentifier(bundleIdentifier);
    }

private:
    LaunchConfiguration m_configuration;
    std::shared_ptr<Workspace> m_workspace;
    Locations m_locations;
};
