import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Controls

// An icon and a text in one colour, read as the text.
RowLayout {
    id: root

    required property string text
    required property string symbol
    required property color color
    property alias font: label.font
    property alias maximumLineCount: label.maximumLineCount

    spacing: 7
    Accessible.role: Accessible.StaticText
    Accessible.name: root.text

    SymbolIcon {
        Layout.alignment: Qt.AlignTop
        Layout.topMargin: Math.max(0, (label.font.pixelSize * 1.2 - 15) / 2)
        implicitWidth: 15
        implicitHeight: 15
        name: root.symbol
        color: root.color
        Accessible.ignored: true
    }

    Label {
        id: label

        Layout.fillWidth: true
        text: root.text
        color: root.color
        font.pixelSize: 12
        font.weight: Font.Medium
        wrapMode: Text.WordWrap
        elide: Text.ElideRight
        Accessible.ignored: true
    }
}
