#pragma once

#include <QColor>
#include <QObject>
#include <QPalette>
#include <QtQmlIntegration>

// The launcher's colours: the dark palette every window uses, plus the two platform colours that
// status lines borrow (green for good news, orange for failures).
class UiPalette : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(LaunchPalette)
    QML_SINGLETON
    Q_PROPERTY(QColor midnight READ midnight CONSTANT)
    Q_PROPERTY(QColor navy READ navy CONSTANT)
    Q_PROPERTY(QColor teal READ teal CONSTANT)
    Q_PROPERTY(QColor accentBlue READ accentBlue CONSTANT)
    Q_PROPERTY(QColor gold READ gold CONSTANT)
    Q_PROPERTY(QColor paper READ paper CONSTANT)
    Q_PROPERTY(QColor slate READ slate CONSTANT)
    Q_PROPERTY(QColor green READ green CONSTANT)
    Q_PROPERTY(QColor orange READ orange CONSTANT)
    // The translucent variants the screens use.
    Q_PROPERTY(QColor selection READ selection CONSTANT)
    Q_PROPERTY(QColor divider READ divider CONSTANT)
    Q_PROPERTY(QColor gradientMiddle READ gradientMiddle CONSTANT)
    Q_PROPERTY(QColor cardBackground READ cardBackground CONSTANT)
    Q_PROPERTY(QColor cardOutline READ cardOutline CONSTANT)
    Q_PROPERTY(QColor bannerBackground READ bannerBackground CONSTANT)
    Q_PROPERTY(QColor bannerOutline READ bannerOutline CONSTANT)
    Q_PROPERTY(QColor badgeBackground READ badgeBackground CONSTANT)
    Q_PROPERTY(QColor badgeOutline READ badgeOutline CONSTANT)
    Q_PROPERTY(QColor rowBackground READ rowBackground CONSTANT)
    Q_PROPERTY(QColor tileBackground READ tileBackground CONSTANT)
    // The controls' surfaces: buttons and fields, raised a little above the window.
    Q_PROPERTY(QColor raised READ raised CONSTANT)
    Q_PROPERTY(QColor raisedLight READ raisedLight CONSTANT)
    Q_PROPERTY(QColor raisedDark READ raisedDark CONSTANT)
    Q_PROPERTY(QColor field READ field CONSTANT)
    Q_PROPERTY(QColor disabledText READ disabledText CONSTANT)
    Q_PROPERTY(QColor disabledRaised READ disabledRaised CONSTANT)

public:
    using QObject::QObject;

    static QColor midnight() { return QColor(7, 17, 31); }
    static QColor navy() { return QColor(11, 36, 66); }
    static QColor teal() { return QColor(46, 199, 211); }
    static QColor accentBlue() { return QColor(70, 166, 255); }
    static QColor gold() { return QColor(215, 168, 74); }
    static QColor paper() { return QColor(244, 247, 250); }
    static QColor slate() { return QColor(128, 145, 165); }
    static QColor green() { return QColor(48, 209, 88); }
    static QColor orange() { return QColor(255, 159, 10); }

    static QColor selection() { return withAlpha(accentBlue(), 0.35); }
    static QColor divider() { return withAlpha(slate(), 0.35); }
    static QColor gradientMiddle() { return withAlpha(navy(), 0.55); }
    static QColor cardBackground() { return withAlpha(navy(), 0.72); }
    static QColor cardOutline() { return withAlpha(slate(), 0.28); }
    static QColor bannerBackground() { return withAlpha(paper(), 0.09); }
    static QColor bannerOutline() { return withAlpha(paper(), 0.16); }
    static QColor badgeBackground() { return withAlpha(gold(), 0.28); }
    static QColor badgeOutline() { return withAlpha(gold(), 0.45); }
    // An application's row inside its card, and the well behind its logo.
    static QColor rowBackground() { return withAlpha(paper(), 0.05); }
    static QColor tileBackground() { return withAlpha(midnight(), 0.72); }

    static QColor raised() { return QColor(26, 52, 86); }
    static QColor raisedLight() { return QColor(48, 78, 116); }
    static QColor raisedDark() { return QColor(4, 10, 20); }
    static QColor field() { return QColor(12, 28, 50); }
    static QColor disabledText() { return withAlpha(slate(), 0.6); }
    static QColor disabledRaised() { return QColor(16, 32, 54); }

    // The palette of the controls (buttons, switches, menus, dialogs) in the dark appearance.
    static QPalette controls();

private:
    static QColor withAlpha(QColor color, qreal alpha) {
        color.setAlphaF(float(alpha));
        return color;
    }
};
