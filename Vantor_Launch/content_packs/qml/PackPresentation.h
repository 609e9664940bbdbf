#pragma once

#include "foundation/ContentPack.h"
#include "store/ContentPackListModel.h"

#include <QColor>
#include <QObject>
#include <QVariantList>
#include <QVariantMap>
#include <QtQmlIntegration>

// How the Content Pack screens show a pack: the list row's mark, the detail's facts and action,
// and moving through the list with the arrow keys.
class PackPresentation : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    // The filter's cases in their order, each a map with "value" (the PackFilter) and "title".
    Q_PROPERTY(QVariantList filters READ filters CONSTANT)

public:
    using QObject::QObject;

    // The detail's action button for the pack's installation state.
    static QString actionTitleFor(const ContentPack& pack);
    static bool opensCreatorFor(const ContentPack& pack) {
        return pack.installation == Launch::PackInstallation::installed;
    }
    // "Version", "Download size" and "Included content" for the values the pack has, in that
    // order, each a map with "label" and "value". Counts are grouped in the locale's way.
    static QVariantList factsFor(const ContentPack& pack, const QLocale& locale = QLocale());
    // The id `offset` places away from `currentID` in `packs`, kept at the list's ends; the first
    // pack when the current one is not listed; empty for an empty list.
    static QString adjacentPackIDIn(const QList<ContentPack>& packs, const QString& currentID,
                                    int offset);

    static QVariantList filters();
    // The list row's mark: a green check for an installed pack, a photo stack otherwise.
    static QString rowSymbolFor(const ContentPack& pack);
    static QColor rowColorFor(const ContentPack& pack);

    Q_INVOKABLE bool isInstalled(const ContentPack& pack) const {
        return pack.installation == Launch::PackInstallation::installed;
    }
    Q_INVOKABLE bool isDownloading(const ContentPack& pack) const {
        return pack.installation == Launch::PackInstallation::downloading;
    }
    Q_INVOKABLE QString rowSymbol(const ContentPack& pack) const { return rowSymbolFor(pack); }
    Q_INVOKABLE QColor rowColor(const ContentPack& pack) const { return rowColorFor(pack); }
    Q_INVOKABLE QString actionTitle(const ContentPack& pack) const { return actionTitleFor(pack); }
    Q_INVOKABLE bool opensCreator(const ContentPack& pack) const { return opensCreatorFor(pack); }
    Q_INVOKABLE QVariantList facts(const ContentPack& pack) const { return factsFor(pack); }
    Q_INVOKABLE QString adjacentPackID(ContentPackListModel* packs, const QString& currentID,
                                       int offset) const {
        return packs ? adjacentPackIDIn(packs->packs(), currentID, offset) : QString();
    }
};
