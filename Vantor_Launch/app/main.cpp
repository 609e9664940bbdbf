#include "ArtworkCache.h"
#include "LauncherApp.h"
#include "PanelLocationChooser.h"
#include "QmlEngineSetup.h"
#include "applications/ProductionApplicationDiscovery.h"
#include "content_packs/ContentStore.h"
#include "foundation/BuildSettings.h"
#include "foundation/LaunchError.h"
#include "foundation/StrictJson.h"
#include "foundation/WorkFolder.h"
#include "platform/BrowserSignIn.h"
#include "platform/BundleReplacement.h"
#include "platform/LauncherInstance.h"
#include "platform/SelfUpdater.h"
#include "store/LaunchStore.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QIcon>
#include <QQmlApplicationEngine>
#include <QThreadPool>
#include <QtQml/qqmlextensionplugin.h>
#include <cstdio>

Q_IMPORT_QML_PLUGIN(Vantor_LaunchPlugin)

using namespace Qt::StringLiterals;

namespace {

// A callback address is one short line; the hand-over program passes no longer one.
constexpr qsizetype maximumCallbackBytes = 16 * 1024;

std::optional<Launch::DemoScenario> scenarioNamed(const QString& name) {
    if (name == u"signed-out"_s)
        return Launch::DemoScenario::signedOut;
    if (name == u"combined"_s)
        return Launch::DemoScenario::combined;
    if (name == u"expired-session"_s)
        return Launch::DemoScenario::expiredSession;
    return std::nullopt;
}

// The launcher's own appcast, from the development configuration ("launcherAppcastURL"). None in
// a build without one: the update check then says that nothing is configured.
std::optional<QUrl> appcastURLFromFile(const QString& path) {
    const auto text = LaunchConfiguration::readFile(path).optionalString("launcherAppcastURL");
    return text ? std::optional<QUrl>(QUrl(*text)) : std::nullopt;
}

// The folders of the bundles that the launcher may have been replacing: where discovery looks, and
// wherever the user pointed it at an application.
QStringList applicationFolders(const QSettings& settings, BookmarkStore& bookmarks) {
    const auto locations = ProductionApplicationDiscovery::Locations::standard();
    QStringList folders{locations.systemApplications,
                        QDir(locations.home).filePath(u"Applications"_s)};
    const QStringList keys = settings.childKeys();
    for (const QString& key : keys) {
        // The store remembers a chosen application under "selectedApplication.<id>".
        if (!key.startsWith(u"selectedApplication."_s))
            continue;
        if (const auto resolution = bookmarks.resolve(settings.value(key).toByteArray()))
            folders.append(QFileInfo(resolution->url.toLocalFile()).absolutePath());
    }
    folders.removeDuplicates();
    return folders;
}

} // namespace

int main(int argc, char* argv[]) {
    // QApplication, not QGuiApplication: the tray menu is drawn with widgets where the desktop has
    // no native menus.
    QApplication application(argc, argv);
    application.setOrganizationName(u"Vantor"_s);
    application.setOrganizationDomain(u"halvex.co.nz"_s);
    application.setApplicationName(u"Vantor Launch"_s);
    application.setApplicationDisplayName(u"Vantor Launcher"_s);
    application.setApplicationVersion(QLatin1String(LAUNCHER_VERSION));
    // The installed entry's name and icon: Wayland matches windows to the entry by this name, X11
    // by the window class set below.
    QGuiApplication::setDesktopFileName(QStringLiteral(LAUNCHER_APP_ID));
    QGuiApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral(LAUNCHER_APP_ID)));

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Companion for Vantor Director and Vantor Creator."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption demoOption(u"demo"_s, u"Start with illustrative demo data."_s);
    const QCommandLineOption scenarioOption(
        u"scenario"_s, u"Demo scenario: signed-out, combined (default) or expired-session."_s,
        u"name"_s, u"combined"_s);
    const QCommandLineOption configOption(
        u"config"_s, u"Read the website endpoints from a JSON file (development)."_s, u"file"_s);
    // The desktop entry's hand-over program passes a sign-in callback address this way, never on
    // the command line, where any user of the machine could read its code.
    QCommandLineOption handOverOption(u"handover"_s,
                                      u"Read a sign-in callback address from standard input."_s);
    handOverOption.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOptions({demoOption, scenarioOption, configOption, handOverOption});
    parser.process(application);

    const auto scenario = scenarioNamed(parser.value(scenarioOption));
    if (!scenario) {
        std::fprintf(stderr, "Unknown demo scenario: %s\n",
                     qPrintable(parser.value(scenarioOption)));
        return 2;
    }

    LaunchConfiguration configuration = LaunchConfiguration::production();
    std::optional<QUrl> appcastURL;
    if (parser.isSet(configOption)) {
        try {
            configuration = LaunchConfiguration::fromFile(parser.value(configOption));
            appcastURL = appcastURLFromFile(parser.value(configOption));
        } catch (const LaunchError& error) {
            std::fprintf(stderr, "%s\n", qPrintable(error.description()));
            return 2;
        }
    }

    // Started for a sign-in callback: hand it to the launcher that waits for it. Whether it
    // waited or not, a running launcher then shows itself and this start ends.
    bool handedOver = false;
    if (parser.isSet(handOverOption)) {
        QFile input;
        QByteArray line;
        if (input.open(stdin, QIODevice::ReadOnly))
            line = input.read(maximumCallbackBytes + 1).trimmed();
        const QUrl callback = QUrl::fromEncoded(line, QUrl::StrictMode);
        handedOver = line.size() <= maximumCallbackBytes && callback.isValid() &&
                     configuration.authenticationCallbackScheme &&
                     callback.scheme() == configuration.authenticationCallbackScheme->toLower() &&
                     PlatformServices::handOverSignInCallback(callback);
    }
    const auto instance = PlatformServices::makeLauncherInstance();
    if (!instance->claim() || handedOver)
        return 0;
    instance->publishToDesktop();

    // What a killed earlier run left in the content store goes now, off the main thread; an
    // update's leftovers go when the next update starts.
    QThreadPool::globalInstance()->start([] {
        ContentStore::removeLeftovers(ContentStore::locate().folder);
        WorkFolder::removeEarlierTemporaryItems(QDir::tempPath());
    });

    // The store asks where an application is through the main window's folder panel.
    const auto locationChooser = std::make_shared<PanelLocationChooser>();
    LaunchCollaborators collaborators = LaunchCollaborators::production(configuration);
    collaborators.locationChooser = locationChooser;
    // One user-defaults object for the process: the store's remembered locations and the tray
    // setting live in the same file.
    const std::shared_ptr<QSettings> settings = collaborators.settings;
    // An update cut short between its two renames (a file system without an exchange of names)
    // leaves the application under a hidden name beside its place: it goes back before anything
    // looks for it, or discovery would miss it and its remembered location be forgotten.
    PlatformServices::recoverInterruptedReplacements(
        applicationFolders(*settings, *collaborators.bookmarks));
    ArtworkCache::shared().setNetworkAccess(collaborators.network);
    LaunchStore store(std::move(collaborators));
    store.setDemoEnabled(parser.isSet(demoOption));
    store.setDemoScenario(*scenario);

    LauncherApp launcher(&store, settings,
                         makeSelfUpdater({appcastURL, QStringLiteral(LAUNCHER_VERSION),
                                          QStringLiteral(LAUNCHER_BUILD), nullptr}),
                         locationChooser);
    launcher.updater()->startAutomaticChecks(LauncherApp::updateCheckInterval);
    QObject::connect(instance.get(), &LauncherInstance::activationRequested, &launcher,
                     &LauncherApp::showRequested);

    QQmlApplicationEngine engine;
    prepareQmlEngine(engine, store);
    engine.setInitialProperties({{u"launcher"_s, QVariant::fromValue(&launcher)}});
    // On X11 the entry finds the windows by their class (StartupWMClass): Qt names it after
    // RESOURCE_NAME when it makes the first window. Only for that moment, so that the programs the
    // launcher starts keep their own.
    const bool namesWindowClass = !qEnvironmentVariableIsSet("RESOURCE_NAME");
    if (namesWindowClass)
        qputenv("RESOURCE_NAME", LAUNCHER_APP_ID);
    engine.load(QUrl(u"qrc:/Vantor/Launch/Main.qml"_s));
    if (namesWindowClass)
        qunsetenv("RESOURCE_NAME");
    if (engine.rootObjects().isEmpty())
        return 1;
    return application.exec();
}
