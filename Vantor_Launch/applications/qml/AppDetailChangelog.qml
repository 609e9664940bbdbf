import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// The latest release and its changes, with the way to the full changelog.
ColumnLayout {
    id: root

    required property string version
    required property string released
    required property var additions

    signal showFullChangelog

    spacing: 6

    SectionCaption {
        text: qsTr("LATEST RELEASE")
    }

    Label {
        objectName: "latestVersion"
        Layout.topMargin: 4
        text: qsTr("Version %1").arg(root.version)
        font.pixelSize: 15
        font.weight: Font.DemiBold
        color: LaunchPalette.paper
    }

    Label {
        text: root.released
        font.pixelSize: 11
        color: LaunchPalette.slate
    }

    Repeater {
        model: root.additions

        ChangeLine {
            required property string modelData

            Layout.fillWidth: true
            text: modelData
        }
    }

    LaunchButton {
        objectName: "fullChangelogButton"
        Layout.topMargin: 8
        text: qsTr("Full Changelog")
        onClicked: root.showFullChangelog()
    }
}
