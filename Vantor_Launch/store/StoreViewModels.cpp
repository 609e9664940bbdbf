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
    const PackFlows& packFlows = store.packFlows();
    const auto followPublicPacks = [this, &packFlows] {
        publicPacks.setPacks(packFlows.publicPacks());
    };
    const auto followSelection = [this, &store] {
        const QString id = store.selectedPackID().value_or(QString());
        for (ContentPackListModel* model : {&packs, &filteredPacks, &publicPacks, &selectedPack})
            model->setSelectedID(id);
        selectedPack.setPacksInPlace(selectedPackIn(store));
    };
    const auto followTransfers = [this, &packFlows] {
        for (ContentPackListModel* model : {&packs, &filteredPacks, &publicPacks, &selectedPack})
            model->setTransfers(packFlows.transfers());
    };
    connect(&store, &LaunchStore::appsChanged, this, followApps);
    connect(&store, &LaunchStore::packsChanged, this, followPacks);
    connect(&store, &LaunchStore::filteredPacksChanged, this, followFilteredPacks);
    connect(&packFlows, &PackFlows::publicPacksChanged, this, followPublicPacks);
    connect(&store, &LaunchStore::selectedPackIDChanged, this, followSelection);
    connect(&packFlows, &PackFlows::transfersChanged, this, followTransfers);
    followApps();
    followPacks();
    followFilteredPacks();
    followPublicPacks();
    followSelection();
    followTransfers();
}
