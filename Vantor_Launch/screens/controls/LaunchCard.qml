import QtQml
import QtQuick
import QtQuick.Layouts
import Vantor.Launch.Controls

// A rounded card around its content, 20 points inside its edge.
Rectangle {
    id: root

    default property alias content: column.data
    property alias spacing: column.spacing

    implicitHeight: column.implicitHeight + 40
    radius: 14
    color: LaunchPalette.cardBackground
    border.color: LaunchPalette.cardOutline
    border.width: 1

    ColumnLayout {
        id: column

        anchors.fill: parent
        anchors.margins: 20
        spacing: 10
    }
}
