import QtQml
import QtQuick
import Qt.labs.platform as Platform
import Vantor.Launch
import Vantor.Launch.Controls

// The tray menu, shown while "showsMenuBarItem" is on: the launcher's sections, the update
// status and the running transfers, the two applications, the launcher's own update check and quitting.
Platform.SystemTrayIcon {
    id: root

    required property var launcher

    signal showLauncherRequested(int section)

    property MenuBarPanelModel panel: MenuBarPanelModel {
        store: Store
    }

    icon.source: root.panel.iconSource
    tooltip: qsTr("Vantor Launcher")
    visible: root.launcher.showsMenuBarItem

    onActivated: reason => {
        if (reason === Platform.SystemTrayIcon.Trigger)
            root.menu.open()
    }

    menu: Platform.Menu {
        id: trayMenu

        Platform.MenuItem {
            text: qsTr("Open Vantor Launcher")
            onTriggered: root.showLauncherRequested(Sections.overview)
        }
        Platform.MenuSeparator {}
        Platform.MenuItem {
            text: root.panel.updatesText
            visible: !root.panel.hasUpdates
            enabled: false
        }
        Platform.MenuItem {
            text: root.panel.updatesText
            visible: root.panel.hasUpdates
            onTriggered: root.showLauncherRequested(Sections.overview)
        }
        // After "Open Vantor Launcher", its separator and the two update lines.
        Instantiator {
            model: root.panel.transferCount
            delegate: Platform.MenuItem {
                required property int index

                text: root.panel.transferLines[index] ?? ""
                enabled: false
            }
            onObjectAdded: (index, item) => trayMenu.insertItem(4 + index, item)
            onObjectRemoved: (index, item) => trayMenu.removeItem(item)
        }
        Platform.MenuSeparator {}
        Platform.MenuItem {
            text: qsTr("Open Vantor Director")
            enabled: root.panel.canOpenDirector
            onTriggered: root.panel.openDirector()
        }
        Platform.MenuItem {
            text: qsTr("Open Vantor Creator")
            enabled: root.panel.canOpenCreator
            onTriggered: root.panel.openCreator()
        }
        Platform.MenuItem {
            text: qsTr("Browse Content Packs")
            onTriggered: root.showLauncherRequested(Sections.packs)
        }
        Platform.MenuSeparator {}
        Platform.MenuItem {
            text: qsTr("Check for Updates")
            onTriggered: {
                root.launcher.checkForLauncherUpdates()
                Store.requestRefreshApplications()
            }
        }
        Platform.MenuSeparator {}
        Platform.MenuItem {
            text: qsTr("Quit Vantor Launcher")
            onTriggered: Qt.quit()
        }
    }
}
