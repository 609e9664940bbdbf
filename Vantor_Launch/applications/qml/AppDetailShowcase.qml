import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// The screenshots, then the numbered features.
ColumnLayout {
    id: root

    required property string applicationPath
    required property var screenshotNames
    required property var features

    spacing: 14

    AppScreenshotGallery {
        Layout.fillWidth: true
        applicationPath: root.applicationPath
        screenshotNames: root.screenshotNames
    }

    SectionCaption {
        Layout.topMargin: 14
        text: qsTr("FEATURES")
    }

    AppFeatureList {
        Layout.fillWidth: true
        features: root.features
    }
}
