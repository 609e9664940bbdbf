import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// The selected screenshot large, and a scrolling row of thumbnails that select it.
ColumnLayout {
    id: root

    required property string applicationPath
    required property var screenshotNames
    property int selection: 0

    spacing: 12
    // Another application's pictures start at their first.
    onScreenshotNamesChanged: root.selection = 0

    AppScreenshotImage {
        objectName: "selectedScreenshot"
        Layout.fillWidth: true
        Layout.preferredHeight: 360
        radius: 12
        applicationPath: root.applicationPath
        filename: root.screenshotNames.length > root.selection
                  ? root.screenshotNames[root.selection] : ""
    }

    ListView {
        Layout.fillWidth: true
        Layout.preferredHeight: 82
        orientation: ListView.Horizontal
        spacing: 10
        clip: true
        model: root.screenshotNames
        boundsBehavior: Flickable.StopAtBounds

        delegate: AbstractButton {
            id: thumbnail

            required property int index
            required property string modelData
            readonly property bool selected: thumbnail.index === root.selection

            objectName: "thumbnail"
            width: 137
            height: 82
            padding: 3
            hoverEnabled: true
            Accessible.role: Accessible.Button
            Accessible.name: qsTr("Show screenshot %1").arg(thumbnail.index + 1)
            Accessible.selectable: true
            Accessible.selected: thumbnail.selected
            onClicked: root.selection = thumbnail.index

            contentItem: AppScreenshotImage {
                radius: 7
                compact: true
                applicationPath: root.applicationPath
                filename: thumbnail.modelData
            }

            background: Rectangle {
                radius: 10
                color: "transparent"
                border.width: 2
                border.color: thumbnail.selected ? LaunchPalette.accentBlue
                                                 : thumbnail.hovered || thumbnail.visualFocus
                                                   ? LaunchPalette.divider : "transparent"
            }
        }
    }
}
