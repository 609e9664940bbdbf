#include "foundation/DomainEnums.h"

#include <QCoreApplication>

namespace Launch {

QString text(InstallationState state) {
    switch (state) {
    case InstallationState::notInstalled:
        return QCoreApplication::translate("Launch", "Not installed");
    case InstallationState::current:
        return QCoreApplication::translate("Launch", "Current");
    case InstallationState::updateAvailable:
        return QCoreApplication::translate("Launch", "Update available");
    case InstallationState::checking:
        return QCoreApplication::translate("Launch", "Checking");
    case InstallationState::stale:
        return QCoreApplication::translate("Launch", "Offline / stale");
    case InstallationState::running:
        return QCoreApplication::translate("Launch", "Running");
    case InstallationState::included:
        return QCoreApplication::translate("Launch", "Included with Vantor Director");
    }
    return {};
}

QString text(PackInstallation installation) {
    switch (installation) {
    case PackInstallation::notInstalled:
        return QCoreApplication::translate("Launch", "Not installed");
    case PackInstallation::installed:
        return QCoreApplication::translate("Launch", "Installed");
    case PackInstallation::updateAvailable:
        return QCoreApplication::translate("Launch", "Update available");
    case PackInstallation::downloading:
        return QCoreApplication::translate("Launch", "Downloading");
    case PackInstallation::failed:
        return QCoreApplication::translate("Launch", "Failed");
    case PackInstallation::unavailable:
        return QCoreApplication::translate("Launch", "Installer unavailable");
    }
    return {};
}

QString text(LaunchSection section) {
    switch (section) {
    case LaunchSection::overview:
        return QCoreApplication::translate("Launch", "Overview");
    case LaunchSection::packs:
        return QCoreApplication::translate("Launch", "Content Packs");
    case LaunchSection::help:
        return QCoreApplication::translate("Launch", "Help");
    }
    return {};
}

QString text(PackFilter filter) {
    switch (filter) {
    case PackFilter::all:
        return QCoreApplication::translate("Launch", "All");
    case PackFilter::installed:
        return QCoreApplication::translate("Launch", "Installed");
    }
    return {};
}

QString text(DemoScenario scenario) {
    switch (scenario) {
    case DemoScenario::signedOut:
        return QCoreApplication::translate("Launch", "Signed out");
    case DemoScenario::combined:
        return QCoreApplication::translate("Launch", "Website: Director + Creator");
    case DemoScenario::expiredSession:
        return QCoreApplication::translate("Launch", "Expired session");
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
