#include "Sections.h"

using namespace Qt::StringLiterals;

QString Sections::symbolFor(Launch::LaunchSection section) {
    switch (section) {
    case Launch::LaunchSection::overview:
        return u"house"_s;
    case Launch::LaunchSection::packs:
        return u"shippingbox"_s;
    case Launch::LaunchSection::help:
        return u"questionmark.circle"_s;
    }
    return {};
}

QVariantList Sections::all() const {
    QVariantList sections;
    int position = 0;
    for (const Launch::LaunchSection section : Launch::allSections) {
        ++position;
        const QString title = Launch::text(section);
        // "Ctrl" is the platform's command modifier: Qt shows and matches it as Command on macOS.
        sections.append(
            QVariantMap{{u"section"_s, int(section)},
                        {u"title"_s, title},
                        {u"symbol"_s, symbolFor(section)},
                        {u"identifier"_s, QString(u"sidebar-"_s + title)},
                        {u"shortcut"_s, QString(u"Ctrl+"_s + QString::number(position))}});
    }
    return sections;
}
