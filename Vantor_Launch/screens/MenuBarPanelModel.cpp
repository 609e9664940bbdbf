#include "MenuBarPanelModel.h"

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
    }
    Q_EMIT storeChanged();
    Q_EMIT changed();
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
