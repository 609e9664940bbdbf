import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch.Controls

// An on/off switch in the launcher's style.
Switch {
    id: root

    padding: 2
    spacing: 0
    implicitWidth: root.indicator.implicitWidth + root.leftPadding + root.rightPadding
    implicitHeight: root.indicator.implicitHeight + root.topPadding + root.bottomPadding

    indicator: Rectangle {
        implicitWidth: 40
        implicitHeight: 22
        x: root.leftPadding
        y: root.topPadding + (root.availableHeight - height) / 2
        radius: height / 2
        color: root.checked ? LaunchPalette.accentBlue : LaunchPalette.raised
        border.width: root.visualFocus ? 2 : 1
        border.color: root.visualFocus ? LaunchPalette.paper : LaunchPalette.cardOutline

        Rectangle {
            width: 18
            height: 18
            radius: 9
            y: 2
            x: root.checked ? parent.width - width - 2 : 2
            color: LaunchPalette.paper

            Behavior on x {
                NumberAnimation {
                    duration: 120
                }
            }
        }
    }

    contentItem: Item {}
}
