import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// One card per feature, in order, two to a row.
GridLayout {
    id: root

    required property var features

    columns: 2
    columnSpacing: 14
    rowSpacing: 14

    Repeater {
        model: root.features

        Rectangle {
            required property var modelData

            objectName: "featureCard"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.preferredWidth: 1 // the columns share the width equally
            implicitHeight: card.implicitHeight + 32
            radius: 14
            color: LaunchPalette.cardBackground
            border.color: LaunchPalette.cardOutline
            border.width: 1

            ColumnLayout {
                id: card

                anchors.fill: parent
                anchors.margins: 16
                spacing: 6

                Label {
                    text: modelData.number
                    font.pixelSize: 11
                    font.bold: true
                    color: LaunchPalette.teal
                }

                Label {
                    Layout.fillWidth: true
                    text: modelData.title
                    font.pixelSize: 15
                    font.weight: Font.DemiBold
                    color: LaunchPalette.paper
                    wrapMode: Text.WordWrap
                }

                Label {
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    verticalAlignment: Text.AlignTop
                    text: modelData.detail
                    font.pixelSize: 13
                    color: LaunchPalette.slate
                    wrapMode: Text.WordWrap
                }
            }
        }
    }
}
