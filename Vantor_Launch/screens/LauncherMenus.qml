import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch
import Vantor.Launch.Controls

// The window's menus: the launcher's own commands and "Navigate", one item per section. "Ctrl" is
// the platform's command key (Command on macOS).
MenuBar {
    id: root

    required property var launcher

    signal settingsRequested

    Menu {
        title: qsTr("Vantor Launcher")

        Action {
            text: qsTr("About Vantor Launcher")
            onTriggered: Store.selection = Sections.help
        }
        MenuSeparator {}
        Action {
            objectName: "checkForUpdatesAction"
            text: qsTr("Check for Updates")
            shortcut: "Ctrl+R"
            onTriggered: root.launcher.checkForLauncherUpdates()
        }
        MenuSeparator {}
        Action {
            text: qsTr("Settings…")
            shortcut: StandardKey.Preferences
            onTriggered: root.settingsRequested()
        }
        MenuSeparator {}
        Action {
            text: qsTr("Quit Vantor Launcher")
            shortcut: StandardKey.Quit
            onTriggered: Qt.quit()
        }
    }

    Menu {
        id: navigateMenu

        title: qsTr("Navigate")

        Instantiator {
            model: Sections.all
            delegate: Action {
                required property var modelData

                objectName: "navigate-" + modelData.title
                text: modelData.title
                shortcut: modelData.shortcut
                onTriggered: Store.selection = modelData.section
            }
            onObjectAdded: (index, action) => navigateMenu.insertAction(index, action)
            onObjectRemoved: (index, action) => navigateMenu.removeAction(action)
        }
    }
}
