#include "foundation/DomainEnums.h"

using namespace Qt::StringLiterals;

namespace Launch {

QString text(InstallationState state) {
    switch (state) {
    case InstallationState::notInstalled:
        return u"Not installed"_s;
    case InstallationState::current:
        return u"Current"_s;
    case InstallationState::updateAvailable:
        return u"Update available"_s;
    case InstallationState::checking:
        return u"Checking"_s;
    case InstallationState::stale:
        return u"Offline / stale"_s;
    case InstallationState::running:
        return u"Running"_s;
    case InstallationState::included:
        return u"Included with Vantor Director"_s;
    }
    return {};
}

QString text(PackInstallation installation) {
    switch (installation) {
    case PackInstallation::notInstalled:
        return u"Not installed"_s;
    case PackInstallation::installed:
        return u"Installed"_s;
    case PackInstallation::updateAvailable:
        return u"Update available"_s;
    case PackInstallation::downloading:
        return u"Downloading"_s;
    case PackInstallation::failed:
        return u"Failed"_s;
    case PackInstallation::unavailable:
        return u"Installer unavailable"_s;
    }
    return {};
}

QString text(LaunchSection section) {
    switch (section) {
    case LaunchSection::overview:
        return u"Overview"_s;
    case LaunchSection::packs:
        return u"Content Packs"_s;
    case LaunchSection::help:
        return u"Help"_s;
    }
    return {};
}

QString text(PackFilter filter) {
    switch (filter) {
    case PackFilter::all:
        return u"All"_s;
    case PackFilter::installed:
        return u"Installed"_s;
    }
    return {};
}

QString text(DemoScenario scenario) {
    switch (scenario) {
    case DemoScenario::signedOut:
        return u"Signed out"_s;
    case DemoScenario::combined:
        return u"Website: Director + Creator"_s;
    case DemoScenario::expiredSession:
        return u"Expired session"_s;
    }
    return {};
}

std::optional<PackInstallation> packInstallationFromText(const QString& value) {
    for (auto candidate : {PackInstallation::notInstalled, PackInstallation::installed,
                           PackInstallation::updateAvailable, PackInstallation::downloading,
                           PackInstallation::failed, PackInstallation::unavailable}) {
        if (text(candidate) == value)
            return candidate;
    }
    return std::nullopt;
}

std::optional<DemoScenario> demoScenarioFromText(const QString& value) {
    for (auto candidate : allDemoScenarios) {
        if (text(candidate) == value)
            return candidate;
    }
    return std::nullopt;
}

} // namespace Launch
