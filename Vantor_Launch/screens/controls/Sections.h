#pragma once

#include "foundation/DomainEnums.h"

#include <QObject>
#include <QVariantList>
#include <QtQmlIntegration>

// The sections of the main window in their order, each with what the sidebar and the "Navigate"
// menu show for it.
class Sections : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    // Maps with section (the LaunchSection value), title, symbol, identifier and shortcut.
    Q_PROPERTY(QVariantList all READ all CONSTANT)
    Q_PROPERTY(int overview READ overview CONSTANT)
    Q_PROPERTY(int packs READ packs CONSTANT)
    Q_PROPERTY(int help READ help CONSTANT)

public:
    using QObject::QObject;

    static QString symbolFor(Launch::LaunchSection section);
    QVariantList all() const;
    int overview() const { return int(Launch::LaunchSection::overview); }
    int packs() const { return int(Launch::LaunchSection::packs); }
    int help() const { return int(Launch::LaunchSection::help); }
};
