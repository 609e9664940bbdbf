#include "PackPresentation.h"

#include "screens/controls/UiPalette.h"

#include <QLocale>

using namespace Qt::StringLiterals;
using Launch::PackInstallation;

QVariantList PackPresentation::filters() {
    QVariantList result;
    for (const Launch::PackFilter filter : {Launch::PackFilter::all, Launch::PackFilter::installed})
        result.append(QVariantMap{{u"value"_s, int(filter)}, {u"title"_s, Launch::text(filter)}});
    return result;
}

QString PackPresentation::rowSymbolFor(const ContentPack& pack) {
    return pack.installation == PackInstallation::installed ? u"checkmark.circle.fill"_s
                                                            : u"photo.stack"_s;
}

QColor PackPresentation::rowColorFor(const ContentPack& pack) {
    return pack.installation == PackInstallation::installed ? UiPalette::green()
                                                            : UiPalette::slate();
}

QString PackPresentation::actionTitleFor(const ContentPack& pack) {
    switch (pack.installation) {
    case PackInstallation::installed:
        return u"Open in Creator"_s;
    case PackInstallation::updateAvailable:
        return u"Update"_s;
    case PackInstallation::downloading:
        return u"Installing\u2026"_s;
    case PackInstallation::notInstalled:
    case PackInstallation::failed:
    case PackInstallation::unavailable:
        break;
    }
    return u"Install"_s;
}

QVariantList PackPresentation::factsFor(const ContentPack& pack, const QLocale& locale) {
    QVariantList facts;
    const auto add = [&](const QString& label, const QString& value) {
        facts.append(QVariantMap{{u"label"_s, label}, {u"value"_s, value}});
    };
    if (pack.version)
        add(u"Version"_s, *pack.version);
    if (pack.downloadSize)
        add(u"Download size"_s, *pack.downloadSize);
    if (pack.contentCount)
        add(u"Included content"_s, locale.toString(*pack.contentCount));
    return facts;
}

QString PackPresentation::adjacentPackIDIn(const QList<ContentPack>& packs,
                                           const QString& currentID, int offset) {
    if (packs.isEmpty())
        return {};
    qsizetype current = -1;
    for (qsizetype i = 0; i < packs.size(); ++i) {
        if (packs[i].id == currentID)
            current = i;
    }
    if (current < 0)
        return packs.constFirst().id;
    const qsizetype next = std::clamp<qsizetype>(current + offset, 0, packs.size() - 1);
    return packs[next].id;
}
