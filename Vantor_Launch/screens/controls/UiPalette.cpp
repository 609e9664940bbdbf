#include "UiPalette.h"

QPalette UiPalette::controls() {
    QPalette palette;
    palette.setColor(QPalette::Window, midnight());
    palette.setColor(QPalette::WindowText, paper());
    palette.setColor(QPalette::Base, field());
    palette.setColor(QPalette::AlternateBase, navy());
    palette.setColor(QPalette::Text, paper());
    palette.setColor(QPalette::PlaceholderText, slate());
    palette.setColor(QPalette::Button, raised());
    palette.setColor(QPalette::ButtonText, paper());
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Highlight, accentBlue());
    palette.setColor(QPalette::HighlightedText, midnight());
    palette.setColor(QPalette::Link, accentBlue());
    palette.setColor(QPalette::LinkVisited, accentBlue());
    palette.setColor(QPalette::ToolTipBase, navy());
    palette.setColor(QPalette::ToolTipText, paper());
    palette.setColor(QPalette::Light, raisedLight());
    palette.setColor(QPalette::Midlight, QColor(34, 60, 94));
    palette.setColor(QPalette::Mid, QColor(20, 40, 66));
    palette.setColor(QPalette::Dark, raisedDark());
    palette.setColor(QPalette::Shadow, Qt::black);
    palette.setColor(QPalette::Disabled, QPalette::WindowText, disabledText());
    palette.setColor(QPalette::Disabled, QPalette::Text, disabledText());
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, disabledText());
    palette.setColor(QPalette::Disabled, QPalette::Button, disabledRaised());
    palette.setColor(QPalette::Disabled, QPalette::Highlight, QColor(40, 80, 120));
    return palette;
}
