#include "ApplicationPresentation.h"

#include "screens/controls/DateTexts.h"
#include "screens/controls/UiPalette.h"
#include "store/LaunchStore.h"

using namespace Qt::StringLiterals;
using Launch::InstallationState;

QString ApplicationPresentation::sidebarSymbolFor(const InstalledApp& app) {
    return app.isInstalled() ? u"checkmark.circle.fill"_s : u"minus.circle"_s;
}

QColor ApplicationPresentation::sidebarColorFor(const InstalledApp& app) {
    return app.isInstalled() ? UiPalette::green() : UiPalette::slate();
}

QString ApplicationPresentation::sidebarAccessibleNameFor(const InstalledApp& app) {
    return app.name + (app.isInstalled() ? u", installed"_s : u", not installed"_s);
}

ApplicationRowDescription ApplicationPresentation::row(const InstalledApp& app,
                                                       const QString& creatorName,
                                                       const QVariant& release) const {
    return describeRow(app, creatorName,
                       release.canConvert<AvailableApplicationRelease>()
                           ? std::optional(release.value<AvailableApplicationRelease>())
                           : std::nullopt);
}

ApplicationRowDescription
ApplicationPresentation::describeRow(const InstalledApp& app, const QString& creatorName,
                                     const std::optional<AvailableApplicationRelease>& release) {
    const bool isCreator = app.name == creatorName;
    ApplicationRowDescription row;
    row.statusText = statusTextFor(app, creatorName);
    row.badges.append({app.stateText(), stateSymbolFor(app.state), stateColorFor(app.state)});
    if (app.isRunning && app.state != InstallationState::running) {
        const auto running = InstallationState::running;
        row.badges.append({Launch::text(running), stateSymbolFor(running), stateColorFor(running)});
    }
    row.logoAccessibleName = app.name + u" logo"_s;
    // Creator cannot be located by itself: it appears once Vantor Director is installed.
    row.showsLocate = !app.isInstalled() && !isCreator;
    row.showsOpen = app.isInstalled();
    // The Creator row carries the Director's location: opening it opens its host.
    row.openTitle = isCreator ? u"Open in VD"_s : u"Open"_s;
    row.showsUpdate = app.state == InstallationState::updateAvailable;
    row.updateTitle = UpdateFlow::updateButtonTitle(app, release);
    row.showsReveal = app.isInstalled();
    return row;
}

QString ApplicationPresentation::statusTextFor(const InstalledApp& app,
                                               const QString& creatorName) {
    if (!app.isInstalled())
        return u"Not installed"_s;
    if (app.name == creatorName && app.state == InstallationState::included)
        return app.installedVersion ? u"Built into Vantor Director "_s + *app.installedVersion
                                    : u"Built into Vantor Director"_s;
    if (!app.installedVersion)
        return u"Installed — version unavailable"_s;
    QString text = u"Installed "_s + *app.installedVersion;
    if (app.build)
        text += u" ("_s + *app.build + u')';
    return text;
}

QString ApplicationPresentation::stateSymbolFor(InstallationState state) {
    switch (state) {
    case InstallationState::notInstalled:
        return u"minus.circle"_s;
    case InstallationState::current:
        return u"checkmark.circle.fill"_s;
    case InstallationState::updateAvailable:
        return u"arrow.down.circle.fill"_s;
    case InstallationState::running:
        return u"play.circle.fill"_s;
    case InstallationState::included:
        return u"checkmark.seal.fill"_s;
    case InstallationState::checking:
    case InstallationState::stale:
        break;
    }
    return u"exclamationmark.circle"_s;
}

QColor ApplicationPresentation::stateColorFor(InstallationState state) {
    switch (state) {
    case InstallationState::current:
    case InstallationState::included:
        return UiPalette::green();
    case InstallationState::updateAvailable:
        return UiPalette::gold();
    case InstallationState::running:
        return UiPalette::accentBlue();
    case InstallationState::notInstalled:
    case InstallationState::checking:
    case InstallationState::stale:
        break;
    }
    return UiPalette::slate();
}

QString ApplicationPresentation::lastCheckedText(const QList<InstalledApp>& apps,
                                                 const QDateTime& now) {
    std::optional<QDateTime> latest;
    for (const InstalledApp& app : apps) {
        if (app.lastChecked && (!latest || *app.lastChecked > *latest))
            latest = app.lastChecked;
    }
    if (!latest)
        return u"Last checked not yet"_s;
    // A check is never in the future; a clock that moved back says "now" rather than "in 5
    // minutes".
    return u"Last checked "_s + DateTexts::relative(std::min(*latest, now), now);
}
