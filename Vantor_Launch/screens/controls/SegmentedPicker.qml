import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Controls

// A row of segments of which one is chosen. `options` are maps with "value" and "title".
Rectangle {
    id: root

    required property string title
    required property var options
    required property var value

    signal chosen(var value)

    implicitHeight: 30
    implicitWidth: segments.implicitWidth + 6
    radius: 8
    color: LaunchPalette.field
    border.color: LaunchPalette.cardOutline
    border.width: 1
    Accessible.role: Accessible.PageTabList
    Accessible.name: root.title

    RowLayout {
        id: segments

        anchors.fill: parent
        anchors.margins: 3
        spacing: 2

        Repeater {
            model: root.options

            AbstractButton {
                id: segment

                required property var modelData
                readonly property bool selected: modelData.value === root.value

                objectName: "segment-" + modelData.title
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 1 // the segments share the width equally
                implicitWidth: label.implicitWidth + 28
                hoverEnabled: true
                Accessible.role: Accessible.PageTab
                Accessible.name: modelData.title
                Accessible.selectable: true
                Accessible.selected: segment.selected
                onClicked: root.chosen(modelData.value)

                background: Rectangle {
                    radius: 6
                    color: segment.selected ? LaunchPalette.raisedLight
                                            : segment.hovered ? LaunchPalette.raised : "transparent"
                    border.width: segment.visualFocus ? 2 : 0
                    border.color: LaunchPalette.accentBlue
                }

                contentItem: Label {
                    id: label

                    text: segment.modelData.title
                    font.pixelSize: 12
                    font.weight: segment.selected ? Font.DemiBold : Font.Normal
                    color: segment.selected ? LaunchPalette.paper : LaunchPalette.slate
                    horizontalAlignment: Text.AlignHCenter
                    verticalAlignment: Text.AlignVCenter
                }
            }
        }
    }
}
