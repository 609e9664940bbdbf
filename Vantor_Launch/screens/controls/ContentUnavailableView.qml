import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Controls

// An empty state: a large symbol, a title and an optional description, centred.
ColumnLayout {
    id: root

    required property string title
    required property string symbol
    property string description

    spacing: 10
    Accessible.role: Accessible.StaticText
    Accessible.name: root.description ? root.title + ". " + root.description : root.title

    SymbolIcon {
        Layout.alignment: Qt.AlignHCenter
        Layout.bottomMargin: 4
        implicitWidth: 48
        implicitHeight: 48
        name: root.symbol
        color: LaunchPalette.slate
        Accessible.ignored: true
    }

    Label {
        objectName: "unavailableTitle"
        Layout.alignment: Qt.AlignHCenter
        text: root.title
        font.pixelSize: 20
        font.bold: true
        color: LaunchPalette.paper
        Accessible.ignored: true
    }

    Label {
        Layout.alignment: Qt.AlignHCenter
        Layout.maximumWidth: 420
        visible: root.description.length > 0
        text: root.description
        font.pixelSize: 13
        color: LaunchPalette.slate
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        Accessible.ignored: true
    }
}
