#include "LauncherApp.h"

#include <QApplication>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

namespace {
const QString menuBarKey = u"showsMenuBarItem"_s;
}

LauncherApp::LauncherApp(LaunchStore* store, std::shared_ptr<QSettings> settings,
                         std::unique_ptr<SelfUpdater> updater,
                         std::shared_ptr<PanelLocationChooser> locationChooser, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_settings(std::move(settings))
    , m_updater(std::move(updater))
    , m_locationChooser(std::move(locationChooser)) {
    if (m_settings)
        m_showsMenuBarItem = m_settings->value(menuBarKey, true).toBool();
    // The launcher's own update outcomes reach the user through the same banner as every flow.
    connect(m_updater.get(), &SelfUpdater::announced, this, [this](const QString& text) {
        if (m_store)
            m_store->setMessage(text);
    });
    applyQuitPolicy();
}

LauncherApp::~LauncherApp() = default;

void LauncherApp::setShowsMenuBarItem(bool shows) {
    if (m_showsMenuBarItem == shows)
        return;
    m_showsMenuBarItem = shows;
    if (m_settings) {
        m_settings->setValue(menuBarKey, shows);
        m_settings->sync();
    }
    applyQuitPolicy();
    Q_EMIT showsMenuBarItemChanged();
}

void LauncherApp::checkForLauncherUpdates() {
    m_updater->checkForUpdates();
}

// With a tray icon the launcher stays when its windows close (the tray reopens them); without one,
// closing the last window is the only way the user has to end it.
void LauncherApp::applyQuitPolicy() {
    if (qobject_cast<QApplication*>(QCoreApplication::instance()))
        QApplication::setQuitOnLastWindowClosed(
            !(m_showsMenuBarItem && QSystemTrayIcon::isSystemTrayAvailable()));
}
