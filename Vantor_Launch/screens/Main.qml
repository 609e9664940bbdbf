import QtQuick
import QtQuick.Controls

ApplicationWindow {
    id: window

    required property var store

    title: "Vantor Launcher"
    width: 1440
    height: 960
    minimumWidth: 1000
    minimumHeight: 720
    visible: true
    color: Qt.rgba(7 / 255, 17 / 255, 31 / 255, 1)

    Component.onCompleted: store.requestStart()

    Label {
        anchors.centerIn: parent
        color: Qt.rgba(244 / 255, 247 / 255, 250 / 255, 1)
        text: "Vantor Launcher"
        font.pixelSize: 28
    }
}
