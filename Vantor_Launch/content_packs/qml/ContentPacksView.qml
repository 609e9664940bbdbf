import QtQml
import QtQuick
import QtQuick.Layouts
import Vantor.Launch.ContentPacks
import Vantor.Launch.Controls

// The Content Packs section: the header, then the list beside the selected pack, or
// "Catalogue unavailable" while there are no packs.
Item {
    id: root


    objectName: "contentPacksView"

    // The platform's find shortcut puts the cursor in the search field.
    Shortcut {
        sequences: [StandardKey.Find]
        enabled: root.visible && Store.packs.count > 0
        onActivated: list.focusSearch()
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 28
        spacing: 20

        ScreenHeader {
            Layout.fillWidth: true
            title: qsTr("Content Packs")
            subtitle: qsTr("Build your creative library.")
            demoEnabled: Store.demoEnabled
        }

        RowLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: Store.packs.count > 0
            spacing: 24

            PackList {
                id: list

                Layout.fillHeight: true
                // At most 480 wide; about two fifths of the row in a narrow window.
                Layout.fillWidth: false
                Layout.preferredWidth: Math.min(480, Math.max(300, (root.width - 56) * 0.4))
                Layout.maximumWidth: 480
            }

            PackDetail {
                Layout.fillHeight: true
                Layout.fillWidth: true
            }
        }

        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: Store.packs.count === 0

            ContentUnavailableView {
                objectName: "catalogueUnavailable"
                anchors.centerIn: parent
                anchors.verticalCenterOffset: -40
                width: Math.min(parent.width, 460)
                title: qsTr("Catalogue unavailable")
                symbol: "shippingbox"
                description: qsTr("No verified Content Pack catalogue endpoint is configured, so there are no packs to show.")
            }
        }
    }
}
