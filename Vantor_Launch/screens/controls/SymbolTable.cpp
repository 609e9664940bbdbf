#include "SymbolTable.h"

#include <QHash>

using namespace Qt::StringLiterals;

namespace {

struct Entry {
    QString name;
    QString file;
};

const QList<Entry>& symbols() {
    static const QList<Entry> table = {
        {u"house"_s, u"home"_s},
        {u"shippingbox"_s, u"box"_s},
        {u"questionmark.circle"_s, u"help-circle"_s},
        {u"checkmark.circle.fill"_s, u"check-circle-filled"_s},
        {u"minus.circle"_s, u"minus-circle"_s},
        {u"info.circle.fill"_s, u"info-circle-filled"_s},
        {u"xmark"_s, u"close"_s},
        {u"person.crop.circle"_s, u"person-circle"_s},
        {u"person.crop.circle.fill"_s, u"person-circle-filled"_s},
        {u"clock.badge.exclamationmark"_s, u"clock-badge-alert"_s},
        {u"wifi.slash"_s, u"wifi-off"_s},
        {u"person.crop.circle.badge.exclamationmark"_s, u"person-circle-badge-alert"_s},
        {u"exclamationmark.triangle.fill"_s, u"warning-filled"_s},
        {u"person.crop.circle.badge.xmark"_s, u"person-circle-badge-xmark"_s},
        {u"hourglass"_s, u"hourglass"_s},
        {u"arrow.triangle.2.circlepath"_s, u"sync-arrows"_s},
        {u"checkmark.seal.fill"_s, u"seal-check-filled"_s},
        {u"wrench.and.screwdriver"_s, u"tools"_s},
        {u"play.square.stack"_s, u"stack-play"_s},
        {u"arrow.down.circle.fill"_s, u"download-circle-filled"_s},
        {u"flask.fill"_s, u"flask-filled"_s},
        {u"arrow.clockwise"_s, u"refresh"_s},
        {u"play.circle.fill"_s, u"play-circle-filled"_s},
        {u"exclamationmark.circle"_s, u"alert-circle"_s},
        {u"macwindow"_s, u"app-window"_s},
        {u"photo.stack"_s, u"photo-stack"_s},
        {u"photo.on.rectangle.angled"_s, u"photo-angled"_s},
        {u"magnifyingglass"_s, u"search"_s},
    };
    return table;
}

const QStringList& logos() {
    static const QStringList names = {u"VantorLaunchLogo"_s, u"VantorDirectorLogo"_s,
                                      u"VantorCreatorLogo"_s};
    return names;
}

} // namespace

namespace SymbolTable {

QString resourcePath(const QString& name) {
    if (logos().contains(name))
        return u":/Vantor/Launch/logos/"_s + name + u".svg"_s;
    for (const Entry& entry : symbols()) {
        if (entry.name == name)
            return u":/Vantor/Launch/icons/"_s + entry.file + u".svg"_s;
    }
    return {};
}

QStringList symbolNames() {
    QStringList names;
    for (const Entry& entry : symbols())
        names.append(entry.name);
    return names;
}

QStringList logoNames() {
    return logos();
}

bool isLogo(const QString& name) {
    return logos().contains(name);
}

} // namespace SymbolTable
