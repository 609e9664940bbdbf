#include "ApplicationRowDescription.h"

#include <QVariantMap>

using namespace Qt::StringLiterals;

QVariantList ApplicationRowDescription::badgesForView() const {
    QVariantList list;
    for (const Badge& badge : badges)
        list.append(QVariantMap{
            {u"text"_s, badge.text}, {u"symbol"_s, badge.symbol}, {u"color"_s, badge.color}});
    return list;
}
