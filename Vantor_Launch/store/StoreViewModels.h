#pragma once

#include "store/ApplicationListModel.h"
#include "store/ContentPackListModel.h"

class LaunchStore;

// The store's lists as the views read them, kept in step with the store's properties.
class StoreViewModels : public QObject {
    Q_OBJECT

public:
    explicit StoreViewModels(LaunchStore& store);

    ApplicationListModel apps;
    ContentPackListModel packs;
    ContentPackListModel filteredPacks;
    ContentPackListModel publicPacks;
    // The selected pack, when the catalogue lists it: zero rows or one.
    ContentPackListModel selectedPack;
};
