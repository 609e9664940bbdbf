import QtQml
import QtQuick
import QtQuick.Layouts
import Vantor.Launch

// The Content Packs section.
Item {
    id: root

    required property var store

    objectName: "contentPacksView"

    ScreenHeader {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 28
        title: "Content Packs"
        subtitle: "Build your creative library."
        demoEnabled: root.store.demoEnabled
    }
}
