import QtQml
import QtQuick
import Vantor.Launch
import Vantor.Launch.Controls

// The application's scenes: the main window, the settings window and the tray menu, all on the
// one store. Showing the launcher from the tray selects the section, then brings the main window
// back (reopening it runs start() again).
QtObject {
    id: root

    required property var launcher

    property MainWindow mainWindow: MainWindow {
        launcher: root.launcher
        onSettingsRequested: root.showSettings()
    }

    property SettingsWindow settingsWindow: SettingsWindow {
        launcher: root.launcher
    }

    property LauncherMenuBarView menuBarExtra: LauncherMenuBarView {
        launcher: root.launcher
        onShowLauncherRequested: section => root.showLauncher(section)
    }

    property Connections launcherConnection: Connections {
        target: root.launcher
        function onShowRequested() {
            root.showLauncher(Store.selection)
        }
    }

    function showLauncher(section) {
        Store.selection = section
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
