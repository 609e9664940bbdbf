import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// One screenshot, or "Preview unavailable" while there is none.
Item {
    id: root

    required property string applicationPath
    required property string filename
    property real radius: 12
    // Small (a thumbnail): a smaller placeholder.
    property bool compact: false
    readonly property bool loaded: image.ready

    Rectangle {
        anchors.fill: parent
        radius: root.radius
        color: Qt.rgba(LaunchPalette.paper.r, LaunchPalette.paper.g, LaunchPalette.paper.b, 0.05)
    }

    ColumnLayout {
        objectName: "previewUnavailable"
        anchors.centerIn: parent
        visible: !image.ready
        spacing: 8

        SymbolIcon {
            Layout.alignment: Qt.AlignHCenter
            implicitWidth: root.compact ? 22 : 34
            implicitHeight: root.compact ? 22 : 34
            name: "macwindow"
            color: LaunchPalette.slate
            Accessible.ignored: true
        }

        Label {
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("Preview unavailable")
            font.pixelSize: root.compact ? 10 : 13
            color: LaunchPalette.slate
        }
    }

    ScreenshotImage {
        id: image

        anchors.fill: parent
        radius: root.radius
        filename: root.filename
        applicationPath: root.applicationPath
    }

    Rectangle {
        anchors.fill: parent
        radius: root.radius
        color: "transparent"
        border.width: 1
        border.color: LaunchPalette.cardOutline
    }
}
