#pragma once

#include <QColor>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariantList>
#include <QtQmlIntegration>

// What one application's row on the overview shows: its texts, its state line and which actions
// it offers. Worked out by ApplicationPresentation; the row only binds to it.
struct ApplicationRowDescription {
    Q_GADGET
    QML_VALUE_TYPE(applicationRow)
    Q_PROPERTY(QString statusText MEMBER statusText CONSTANT)
    Q_PROPERTY(QVariantList badges READ badgesForView CONSTANT)
    Q_PROPERTY(QString logoAccessibleName MEMBER logoAccessibleName CONSTANT)
    Q_PROPERTY(bool showsLocate MEMBER showsLocate CONSTANT)
    Q_PROPERTY(bool showsOpen MEMBER showsOpen CONSTANT)
    Q_PROPERTY(QString openTitle MEMBER openTitle CONSTANT)
    Q_PROPERTY(bool showsUpdate MEMBER showsUpdate CONSTANT)
    Q_PROPERTY(QString updateTitle MEMBER updateTitle CONSTANT)
    Q_PROPERTY(bool showsReveal MEMBER showsReveal CONSTANT)

public:
    // One icon-and-text line in the state's colour.
    struct Badge {
        QString text;
        QString symbol;
        QColor color;
        friend bool operator==(const Badge&, const Badge&) = default;
    };

    QString statusText;
    // The state, then "Running" when the state says something else: the release check rewrites
    // the state of a running Director to current or update available.
    QList<Badge> badges;
    QString logoAccessibleName;
    bool showsLocate = false;
    bool showsOpen = false;
    QString openTitle;
    bool showsUpdate = false;
    QString updateTitle;
    bool showsReveal = false;

    // Each badge as a map with "text", "symbol" and "color".
    QVariantList badgesForView() const;
};

Q_DECLARE_METATYPE(ApplicationRowDescription)
