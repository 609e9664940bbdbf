#include "foundation/DemoData.h"

using namespace Qt::StringLiterals;
using Launch::InstallationState;
using Launch::PackInstallation;

namespace DemoData {

QDateTime referenceDate() {
    static const QDateTime date = QDateTime::fromString(u"2026-10-26T10:00:00Z"_s, Qt::ISODate);
    return date;
}

QList<InstalledApp> applications(Launch::DemoScenario) {
    InstalledApp director;
    director.id = u"nz.co.halvex.Pellomar"_s;
    director.name = u"Vantor Director"_s;
    director.bundleIdentifier = u"nz.co.halvex.Pellomar"_s;
    director.logoAsset = u"VantorDirectorLogo"_s;
    director.path = QUrl::fromLocalFile(u"/Applications/Vantor Director.app"_s);
    director.installedVersion = u"2.4.1"_s;
    director.build = u"2410"_s;
    director.availableVersion = u"2.5.0"_s;
    director.state = InstallationState::updateAvailable;
    director.lastChecked = referenceDate();

    InstalledApp creator;
    creator.id = u"nz.co.halvex.Vantor-Creator"_s;
    creator.name = u"Vantor Creator"_s;
    creator.bundleIdentifier = u"nz.co.halvex.Vantor-Creator"_s;
    creator.logoAsset = u"VantorCreatorLogo"_s;
    creator.path = QUrl::fromLocalFile(u"/Applications/Vantor Creator.app"_s);
    creator.installedVersion = u"1.8.0"_s;
    creator.build = u"1800"_s;
    creator.availableVersion = u"1.8.0"_s;
    creator.state = InstallationState::current;
    creator.lastChecked = referenceDate();

    return {director, creator};
}

const QList<ContentPack>& packs() {
    static const QList<ContentPack> demoPacks = [] {
        ContentPack nature;
        nature.id = u"demo-nature-light"_s;
        nature.name = u"Nature & Light"_s;
        nature.summary = u"Calm forest and mountain scenes."_s;
        nature.detail =
            u"Illustrative demo catalogue entry. Artwork is intentionally not bundled."_s;
        nature.contentCount = 24;
        nature.version = u"1.2"_s;
        nature.downloadSize = u"Demo data"_s;
        nature.installation = PackInstallation::notInstalled;
        nature.requiresCreator = true;

        ContentPack coastal;
        coastal.id = u"demo-coastal-memories"_s;
        coastal.name = u"Coastal Memories"_s;
        coastal.summary = u"Shorelines, harbours and quiet beaches."_s;
        coastal.detail = u"Illustrative public catalogue entry for demonstration only."_s;
        coastal.contentCount = 18;
        coastal.version = u"1.0"_s;
        coastal.installation = PackInstallation::notInstalled;
        coastal.requiresCreator = true;

        ContentPack floral;
        floral.id = u"demo-floral-reflections"_s;
        floral.name = u"Floral Reflections"_s;
        floral.summary = u"Gentle blossoms and garden light."_s;
        floral.detail =
            u"Installed demo entry. Launch never writes into Creator's content store."_s;
        floral.contentCount = 16;
        floral.version = u"1.0"_s;
        floral.downloadSize = u"Demo data"_s;
        floral.installation = PackInstallation::installed;
        floral.requiresCreator = true;

        return QList<ContentPack>{nature, coastal, floral};
    }();
    return demoPacks;
}

WebsiteAccount account() {
    return WebsiteAccount{u"demo-customer"_s, u"Sample Customer"_s,
                          u"sample.customer@example.com"_s};
}

LaunchAccountSnapshot snapshot(Launch::DemoScenario) {
    return LaunchAccountSnapshot{1, account(), referenceDate()};
}

} // namespace DemoData
