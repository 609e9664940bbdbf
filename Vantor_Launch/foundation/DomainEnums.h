#pragma once

#include <QObject>
#include <QString>
#include <optional>

// The text-valued enumerations shared by every subsystem. Each case's text is what the user
// sees and, where a file or JSON carries the value, its encoded form.
namespace Launch {
Q_NAMESPACE

enum class InstallationState {
    notInstalled,
    current,
    updateAvailable,
    checking,
    stale,
    running,
    included
};
Q_ENUM_NS(InstallationState)

enum class PackInstallation {
    notInstalled,
    installed,
    updateAvailable,
    downloading,
    failed,
    unavailable
};
Q_ENUM_NS(PackInstallation)

enum class LaunchSection { overview, packs, help };
Q_ENUM_NS(LaunchSection)

enum class PackFilter { all, installed };
Q_ENUM_NS(PackFilter)

enum class DemoScenario { signedOut, combined, expiredSession };
Q_ENUM_NS(DemoScenario)

QString text(InstallationState state);
QString text(PackInstallation installation);
QString text(LaunchSection section);
QString text(PackFilter filter);
QString text(DemoScenario scenario);

std::optional<PackInstallation> packInstallationFromText(const QString& text);
std::optional<DemoScenario> demoScenarioFromText(const QString& text);

inline constexpr LaunchSection allSections[] = {LaunchSection::overview, LaunchSection::packs,
                                                LaunchSection::help};
inline constexpr PackFilter allPackFilters[] = {PackFilter::all, PackFilter::installed};
inline constexpr DemoScenario allDemoScenarios[] = {DemoScenario::signedOut, DemoScenario::combined,
                                                    DemoScenario::expiredSession};

} // namespace Launch
