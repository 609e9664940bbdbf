#pragma once

#include "applications/qml/PanelLocationChooser.h"
#include "platform/SelfUpdater.h"
#include "store/LaunchStore.h"

#include <QObject>
#include <QSettings>
#include <QtQmlIntegration>
#include <memory>

// What the application entry holds besides the windows: the one store, the persisted "show in the
// menu bar" setting, the launcher's own updater and the location chooser that the store asks
// (the main window shows its panel). The windows receive it as `launcher`.
class LauncherApp : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the application entry")
    Q_PROPERTY(LaunchStore* store READ store CONSTANT)
    Q_PROPERTY(SelfUpdater* updater READ updater CONSTANT)
    Q_PROPERTY(PanelLocationChooser* locationChooser READ locationChooser CONSTANT)
    Q_PROPERTY(bool showsMenuBarItem READ showsMenuBarItem WRITE setShowsMenuBarItem NOTIFY
                   showsMenuBarItemChanged)

public:
    static constexpr std::chrono::seconds updateCheckInterval{21600};

    LauncherApp(LaunchStore* store, std::shared_ptr<QSettings> settings,
                std::unique_ptr<SelfUpdater> updater,
                std::shared_ptr<PanelLocationChooser> locationChooser, QObject* parent = nullptr);
    ~LauncherApp() override;

    LaunchStore* store() const { return m_store; }
    SelfUpdater* updater() const { return m_updater.get(); }
    PanelLocationChooser* locationChooser() const { return m_locationChooser.get(); }
    bool showsMenuBarItem() const { return m_showsMenuBarItem; }
    void setShowsMenuBarItem(bool shows);

    // The launcher's own update check, on the user's request.
    Q_INVOKABLE void checkForLauncherUpdates();

Q_SIGNALS:
    void showsMenuBarItemChanged();
    // Another start of the launcher, or the browser after sign-in, asks for the main window.
    void showRequested();

private:
    void applyQuitPolicy();

    LaunchStore* m_store;
    std::shared_ptr<QSettings> m_settings;
    std::unique_ptr<SelfUpdater> m_updater;
    std::shared_ptr<PanelLocationChooser> m_locationChooser;
    bool m_showsMenuBarItem = true;
};
