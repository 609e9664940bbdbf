#include "MenuBarPanelModel.h"

#include "TransferPresentation.h"
#include "store/PackFlows.h"
#include "store/UpdateFlow.h"

using namespace Qt::StringLiterals;

MenuBarPanelModel::MenuBarPanelModel(QObject* parent)
    : QObject(parent) {}

void MenuBarPanelModel::setStore(LaunchStore* store) {
    if (m_store == store)
        return;
    for (const auto& connection : std::as_const(m_connections))
        disconnect(connection);
    m_connections.clear();
    m_store = store;
    if (store) {
        m_connections.append(
            connect(store, &LaunchStore::appsChanged, this, &MenuBarPanelModel::changed));
        m_connections.append(
            connect(store, &LaunchStore::updateCountChanged, this, &MenuBarPanelModel::changed));
        // The lines name the application and the pack, so their renames count too.
        for (const auto signal : {&LaunchStore::appsChanged, &LaunchStore::packsChanged})
            m_connections.append(connect(store, signal, this, &MenuBarPanelModel::noteTransfers));
        m_connections.append(connect(&store->updateFlow(), &UpdateFlow::transferChanged, this,
                                     &MenuBarPanelModel::followTransfers));
        m_connections.append(connect(&store->updateFlow(), &UpdateFlow::updatingAppIDChanged, this,
                                     &MenuBarPanelModel::noteTransfers));
        m_connections.append(connect(&store->packFlows(), &PackFlows::transfersChanged, this,
                                     &MenuBarPanelModel::followTransfers));
    }
    Q_EMIT storeChanged();
    Q_EMIT changed();
    followTransfers();
}

QList<QPointer<Transfer>> MenuBarPanelModel::runningTransfers() const {
    QList<QPointer<Transfer>> transfers;
    if (!m_store)
        return transfers;
    if (Transfer* update = m_store->updateFlow().transfer())
        transfers.append(update);
    for (const ContentPack& pack : m_store->packs()) {
        if (const QPointer<Transfer> transfer = m_store->packFlows().transfers().value(pack.id))
            transfers.append(transfer);
    }
    return transfers;
}

void MenuBarPanelModel::followTransfers() {
    for (const auto& connection : std::as_const(m_transferConnections))
        disconnect(connection);
    m_transferConnections.clear();
    // Each transfer notifies a few times a second at most.
    for (const QPointer<Transfer>& transfer : runningTransfers()) {
        m_transferConnections.append(connect(transfer.data(), &Transfer::progressChanged, this,
                                             &MenuBarPanelModel::transferLinesChanged));
    }
    noteTransfers();
}

void MenuBarPanelModel::noteTransfers() {
    const int count = int(runningTransfers().size());
    if (count != m_transferCount) {
        m_transferCount = count;
        Q_EMIT transferCountChanged();
    }
    Q_EMIT transferLinesChanged();
}

QStringList MenuBarPanelModel::transferLines() const {
    QStringList lines;
    if (!m_store)
        return lines;
    if (const Transfer* update = m_store->updateFlow().transfer()) {
        QString name = m_store->configuration().director.name;
        for (const InstalledApp& app : m_store->apps()) {
            if (m_store->updateFlow().updatingAppID() == app.id)
                name = app.name;
        }
        lines.append(TransferPresentation::updatingLineFor(name, update->fraction()));
    }
    for (const ContentPack& pack : m_store->packs()) {
        if (const Transfer* transfer = m_store->packFlows().transfers().value(pack.id))
            lines.append(TransferPresentation::installingLineFor(pack.name, transfer->fraction()));
    }
    return lines;
}

bool MenuBarPanelModel::hasUpdates() const {
    return m_store && m_store->updateCount() > 0;
}

QString MenuBarPanelModel::updatesText() const {
    if (!hasUpdates())
        return u"All apps are up to date"_s;
    return u"Updates Available: "_s + QString::number(m_store->updateCount());
}

std::optional<InstalledApp> MenuBarPanelModel::appNamed(const QString& name) const {
    if (!m_store)
        return std::nullopt;
    for (const InstalledApp& app : m_store->apps()) {
        if (app.name == name)
            return app;
    }
    return std::nullopt;
}

bool MenuBarPanelModel::canOpenDirector() const {
    const auto app = m_store ? appNamed(m_store->configuration().director.name) : std::nullopt;
    return app && app->isInstalled();
}

bool MenuBarPanelModel::canOpenCreator() const {
    const auto app = m_store ? appNamed(m_store->configuration().creator.name) : std::nullopt;
    return app && app->isInstalled();
}

QString MenuBarPanelModel::iconName() const {
    return hasUpdates() ? u"arrow.down.circle.fill"_s : u"play.square.stack"_s;
}

QUrl MenuBarPanelModel::iconSource() const {
    return QUrl(u"image://symbol/"_s + iconName());
}

void MenuBarPanelModel::openAppNamed(const QString& name) {
    if (const auto app = appNamed(name))
        m_store->applicationFlows().open(*app);
}

void MenuBarPanelModel::openDirector() {
    if (m_store)
        openAppNamed(m_store->configuration().director.name);
}

void MenuBarPanelModel::openCreator() {
    if (m_store)
        openAppNamed(m_store->configuration().creator.name);
}
