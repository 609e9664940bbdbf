import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Controls

// Says that the launcher shows demo data.
Rectangle {
    id: root

    objectName: "demoBadge"
    implicitWidth: row.implicitWidth + 24
    implicitHeight: row.implicitHeight + 14
    radius: height / 2
    color: LaunchPalette.badgeBackground
    border.color: LaunchPalette.badgeOutline
    border.width: 1
    Accessible.role: Accessible.StaticText
    Accessible.name: qsTr("Demo data is active. Actions cannot change real apps or accounts.")

    RowLayout {
        id: row

        anchors.centerIn: parent
        spacing: 6

        SymbolIcon {
            implicitWidth: 14
            implicitHeight: 14
            name: "flask.fill"
            color: LaunchPalette.gold
            Accessible.ignored: true
        }

        Label {
            text: qsTr("Demo data")
            font.pixelSize: 12
            font.weight: Font.DemiBold
            color: LaunchPalette.paper
            Accessible.ignored: true
        }
    }
}
