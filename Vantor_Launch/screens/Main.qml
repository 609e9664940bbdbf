import QtQml
import QtQuick

// The application's scenes: the main window, the settings window and the tray menu, all on the
// one store. Showing the launcher from the tray selects the section, then brings the main window
// back (reopening it runs start() again).
QtObject {
    id: root

    required property var store
    required property var launcher

    property MainWindow mainWindow: MainWindow {
        store: root.store
        launcher: root.launcher
        onSettingsRequested: root.showSettings()
    }

    property SettingsWindow settingsWindow: SettingsWindow {
        store: root.store
        launcher: root.launcher
    }

    property LauncherMenuBarView menuBarExtra: LauncherMenuBarView {
        store: root.store
        launcher: root.launcher
        onShowLauncherRequested: section => root.showLauncher(section)
    }

    property Connections launcherConnection: Connections {
        target: root.launcher
        function onShowRequested() {
            root.showLauncher(root.store.selection)
        }
    }

    function showLauncher(section) {
        root.store.selection = section
        root.mainWindow.show()
        root.mainWindow.raise()
        root.mainWindow.requestActivate()
    }

    function showSettings() {
        root.settingsWindow.show()
        root.settingsWindow.raise()
        root.settingsWindow.requestActivate()
    }
}
