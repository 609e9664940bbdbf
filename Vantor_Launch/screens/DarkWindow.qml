import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch
import Vantor.Launch.Controls

// A window in the launcher's dark appearance, whatever the desktop's theme: its controls take
// their colours from the launcher's palette.
ApplicationWindow {
    color: LaunchPalette.midnight

    palette.window: LaunchPalette.midnight
    palette.windowText: LaunchPalette.paper
    palette.base: LaunchPalette.field
    palette.alternateBase: LaunchPalette.navy
    palette.text: LaunchPalette.paper
    palette.placeholderText: LaunchPalette.slate
    palette.button: LaunchPalette.raised
    palette.buttonText: LaunchPalette.paper
    palette.brightText: LaunchPalette.paper
    palette.highlight: LaunchPalette.accentBlue
    palette.highlightedText: LaunchPalette.midnight
    palette.link: LaunchPalette.accentBlue
    palette.toolTipBase: LaunchPalette.navy
    palette.toolTipText: LaunchPalette.paper
    palette.light: LaunchPalette.raisedLight
    palette.midlight: LaunchPalette.raised
    palette.mid: LaunchPalette.navy
    palette.dark: LaunchPalette.raisedDark
    palette.shadow: LaunchPalette.raisedDark
    palette.disabled.windowText: LaunchPalette.disabledText
    palette.disabled.text: LaunchPalette.disabledText
    palette.disabled.buttonText: LaunchPalette.disabledText
    palette.disabled.button: LaunchPalette.disabledRaised
}
