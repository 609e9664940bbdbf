#pragma once

#include "foundation/ContentPack.h"

#include <QCoroTask>
#include <QHash>
#include <QObject>
#include <QPointer>

class LaunchStore;
#include "store/Transfer.h"

// Content Packs: the public catalogue, what the content store holds, installations with their
// progress and Cancel, and handing over to Vantor Creator.
class PackFlows : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRefreshingContentPacks READ isRefreshingContentPacks NOTIFY
                   isRefreshingContentPacksChanged)
    Q_PROPERTY(bool hasLoadedPublicCatalogue READ hasLoadedPublicCatalogue NOTIFY
                   hasLoadedPublicCatalogueChanged)

public:
    explicit PackFlows(LaunchStore& store);

    bool isRefreshingContentPacks() const { return m_isRefreshingContentPacks; }
    const QList<ContentPack>& publicPacks() const { return m_publicPacks; }
    bool hasLoadedPublicCatalogue() const { return m_hasLoadedPublicCatalogue; }
    // The running installations' downloads, by pack id.
    const QHash<QString, QPointer<Transfer>>& transfers() const { return m_transfers; }

    QCoro::Task<> refreshContentPacks();
    QCoro::Task<> refreshReleaseAndCatalogue();
    QCoro::Task<> refreshCatalogue();
    QCoro::Task<> refreshPackInstallations();
    QCoro::Task<> installPack(QString packID);
    QCoro::Task<> openContentPackManagement();
    // Stops the pack's installation while it downloads; the content store stays as it was.
    Q_INVOKABLE void cancelInstall(const QString& packID);
    // What start() does: the catalogue of the mode that ends goes.
    void forgetCatalogue();

Q_SIGNALS:
    void isRefreshingContentPacksChanged();
    void publicPacksChanged();
    void hasLoadedPublicCatalogueChanged();
    void transfersChanged();

private:
    void setIsRefreshingContentPacks(bool refreshing);
    void setPublicPacks(QList<ContentPack> packs);
    void setHasLoadedPublicCatalogue(bool loaded);
    void setInstallation(const QString& packID, Launch::PackInstallation installation);
    void setTransfer(const QString& packID, Transfer* transfer);
    QCoro::Task<> tellDirector();

    LaunchStore& m_store;
    bool m_isRefreshingContentPacks = false;
    QList<ContentPack> m_publicPacks;
    bool m_hasLoadedPublicCatalogue = false;
    QHash<QString, QPointer<Transfer>> m_transfers;
};
