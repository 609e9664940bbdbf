#include "store/StoreViewModels.h"

#include "store/LaunchStore.h"

namespace {

QList<ContentPack> selectedPackIn(const LaunchStore& store) {
    for (const ContentPack& pack : store.packs()) {
        if (pack.id == store.selectedPackID())
            return {pack};
    }
    return {};
}

} // namespace

StoreViewModels::StoreViewModels(LaunchStore& store)
    : QObject(&store) {
    const auto followApps = [this, &store] { apps.setApps(store.apps()); };
    const auto followPacks = [this, &store] {
        packs.setPacks(store.packs());
        selectedPack.setPacksInPlace(selectedPackIn(store));
    };
    const auto followFilteredPacks = [this, &store] {
        filteredPacks.setPacks(store.filteredPacks());
    };
    const auto followPublicPacks = [this, &store] { publicPacks.setPacks(store.publicPacks()); };
    const auto followSelection = [this, &store] {
        const QString id = store.selectedPackID().value_or(QString());
        for (ContentPackListModel* model : {&packs, &filteredPacks, &publicPacks, &selectedPack})
            model->setSelectedID(id);
        selectedPack.setPacksInPlace(selectedPackIn(store));
    };
    const auto followProgress = [this, &store] {
        for (ContentPackListModel* model : {&packs, &filteredPacks, &publicPacks, &selectedPack})
            model->setProgress(store.packProgress());
    };
    connect(&store, &LaunchStore::appsChanged, this, followApps);
    connect(&store, &LaunchStore::packsChanged, this, followPacks);
    connect(&store, &LaunchStore::filteredPacksChanged, this, followFilteredPacks);
    connect(&store, &LaunchStore::publicPacksChanged, this, followPublicPacks);
    connect(&store, &LaunchStore::selectedPackIDChanged, this, followSelection);
    connect(&store, &LaunchStore::packProgressChanged, this, followProgress);
    followApps();
    followPacks();
    followFilteredPacks();
    followPublicPacks();
    followSelection();
    followProgress();
}
