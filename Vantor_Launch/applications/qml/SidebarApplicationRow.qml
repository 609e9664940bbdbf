import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// A managed application in the sidebar: its logo and whether it is installed, read as one element.
RowLayout {
    id: root

    required property var app
    readonly property string accessibleName: ApplicationPresentation.sidebarAccessibleName(root.app)

    objectName: "sidebarApp-" + root.app.name
    spacing: 10
    Accessible.role: Accessible.ListItem
    Accessible.name: root.accessibleName

    Item {
        Layout.topMargin: 4
        Layout.bottomMargin: 4
        implicitWidth: 148
        implicitHeight: 38

        SymbolIcon {
            anchors.verticalCenter: parent.verticalCenter
            width: parent.width
            height: 27
            name: root.app.logoAsset
            alignment: Qt.AlignLeft | Qt.AlignVCenter
            Accessible.ignored: true
        }
    }

    SymbolIcon {
        objectName: "installedIcon"
        implicitWidth: 16
        implicitHeight: 16
        name: ApplicationPresentation.sidebarSymbol(root.app)
        color: ApplicationPresentation.sidebarColor(root.app)
        Accessible.ignored: true
    }

    Item {
        Layout.fillWidth: true
    }
}
