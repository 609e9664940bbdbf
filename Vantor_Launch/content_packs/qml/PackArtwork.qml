import QtQml
import QtQuick
import Vantor.Launch.ContentPacks
import Vantor.Launch.Controls

// A pack's artwork filling the frame, or the gradient placeholder with the photo symbol while it
// loads, when it fails and when the pack has none.
Item {
    id: root

    // The artwork URL; empty when the pack has none.
    required property url url
    property string accessibleName
    readonly property bool loaded: image.ready

    implicitHeight: 92
    Accessible.role: Accessible.Graphic
    Accessible.name: root.accessibleName

    ArtworkImage {
        id: image

        anchors.fill: parent
        radius: 9
        source: root.url
    }

    SymbolIcon {
        objectName: "artworkPlaceholder"
        anchors.centerIn: parent
        width: Math.min(34, parent.height * 0.4)
        height: width
        visible: !image.ready
        name: "photo.on.rectangle.angled"
        color: Qt.rgba(LaunchPalette.paper.r, LaunchPalette.paper.g, LaunchPalette.paper.b, 0.55)
        Accessible.ignored: true
    }
}
