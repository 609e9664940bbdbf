#pragma once

#include "foundation/ContentPack.h"

#include <QCoroTask>
#include <QList>

// Loads the public Content Pack catalogue. Throws LaunchError.
class CatalogueProviding {
public:
    virtual ~CatalogueProviding() = default;
    virtual QCoro::Task<QList<ContentPack>> loadCatalogue() = 0;
};
