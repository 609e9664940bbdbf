import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch.Controls

// A push button in the launcher's style; `highlighted` marks the prominent action of its group.
Button {
    id: root

    property bool small: false
    // A symbol before the title, when set.
    property string symbol

    hoverEnabled: true
    font.pixelSize: root.small ? 12 : 13
    leftPadding: root.small ? 12 : 16
    rightPadding: root.small ? 12 : 16
    topPadding: root.small ? 5 : 7
    bottomPadding: root.small ? 5 : 7

    contentItem: Item {
        implicitWidth: (icon.visible ? icon.implicitWidth + 6 : 0) + label.implicitWidth
        implicitHeight: Math.max(icon.implicitHeight, label.implicitHeight)

        Row {
            anchors.centerIn: parent
            spacing: 6

            SymbolIcon {
                id: icon

                anchors.verticalCenter: parent.verticalCenter
                visible: root.symbol.length > 0
                implicitWidth: root.small ? 12 : 14
                implicitHeight: root.small ? 12 : 14
                name: root.symbol
                color: label.color
                Accessible.ignored: true
            }

            Label {
                id: label

                anchors.verticalCenter: parent.verticalCenter
                width: Math.min(implicitWidth,
                                root.availableWidth - (icon.visible ? icon.width + 6 : 0))
                text: root.text
                font: root.font
                horizontalAlignment: Text.AlignHCenter
                elide: Text.ElideRight
                color: !root.enabled ? LaunchPalette.disabledText
                                     : root.highlighted ? LaunchPalette.midnight : LaunchPalette.paper
            }
        }
    }

    background: Rectangle {
        implicitHeight: root.small ? 26 : 32
        radius: 7
        color: !root.enabled ? LaunchPalette.disabledRaised
                             : root.highlighted ? (root.down ? Qt.darker(LaunchPalette.accentBlue, 1.2)
                                                            : LaunchPalette.accentBlue)
                                                : (root.down ? LaunchPalette.raisedDark
                                                             : root.hovered ? LaunchPalette.raisedLight
                                                                            : LaunchPalette.raised)
        border.width: root.visualFocus ? 2 : 1
        border.color: root.visualFocus ? LaunchPalette.paper : LaunchPalette.cardOutline
    }
}
