import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Controls

// The outcome of the latest flow, until the user dismisses it or a newer one replaces it. Read and
// reached by Tab as one element, the message, whose press action (Space, Escape) dismisses it; the
// dismiss button is for the pointer.
Rectangle {
    id: root

    required property string message

    signal dismiss

    objectName: "messageBanner"
    implicitHeight: row.implicitHeight + 24
    radius: 10
    color: LaunchPalette.bannerBackground
    border.color: root.activeFocus ? LaunchPalette.accentBlue : LaunchPalette.bannerOutline
    border.width: root.activeFocus ? 2 : 1
    activeFocusOnTab: true
    Accessible.role: Accessible.AlertMessage
    Accessible.name: root.message
    Accessible.description: qsTr("Press Space to dismiss")
    Accessible.focusable: true
    Accessible.onPressAction: root.dismiss()
    Keys.onSpacePressed: root.dismiss()
    Keys.onEscapePressed: root.dismiss()

    RowLayout {
        id: row

        anchors.fill: parent
        anchors.margins: 12
        spacing: 10

        SymbolIcon {
            implicitWidth: 18
            implicitHeight: 18
            name: "info.circle.fill"
            color: LaunchPalette.accentBlue
            Accessible.ignored: true
        }

        Label {
            objectName: "messageText"
            Layout.fillWidth: true
            text: root.message
            color: LaunchPalette.paper
            font.pixelSize: 13
            wrapMode: Text.Wrap
            Accessible.ignored: true
        }

        AbstractButton {
            id: dismissButton

            objectName: "dismissButton"
            implicitWidth: 26
            implicitHeight: 26
            hoverEnabled: true
            focusPolicy: Qt.NoFocus
            text: qsTr("Dismiss")
            Accessible.ignored: true
            onClicked: root.dismiss()

            background: Rectangle {
                radius: width / 2
                color: dismissButton.hovered ? LaunchPalette.bannerOutline : "transparent"
            }

            contentItem: SymbolIcon {
                name: "xmark"
                color: LaunchPalette.paper
            }

            padding: 6
        }
    }
}
