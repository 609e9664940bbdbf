#include "store/PackFlows.h"

#include "foundation/LaunchError.h"
#include "foundation/SemanticVersion.h"
#include "store/ClearOnExit.h"
#include "store/GenerationTicket.h"
#include "store/LaunchStore.h"
#include "store/PropertyAssign.h"
#include "store/Transfer.h"

#include <QTimer>
#include <qcorotimer.h>

using namespace Qt::StringLiterals;
using Launch::PackInstallation;

PackFlows::PackFlows(LaunchStore& store)
    : QObject(&store)
    , m_store(store) {}

QCoro::Task<> PackFlows::refreshContentPacks() {
    if (m_isRefreshingContentPacks)
        co_return;
    if (m_store.demoEnabled()) {
        m_store.setMessage(tr("Demo mode did not refresh production Content Packs."));
        co_return;
    }
    setIsRefreshingContentPacks(true);
    const ClearOnExit refreshing(
        *this, [](PackFlows& flows) { flows.setIsRefreshingContentPacks(false); });
    const auto ticket = GenerationTicket::forMode(m_store);
    AccountFlows& account = m_store.accountFlows();
    if (account.account()) {
        co_await account.refreshAccount();
        if (!ticket.stillApplies())
            co_return;
    }
    co_await refreshReleaseAndCatalogue();
    if (!ticket.stillApplies())
        co_return;
    co_await refreshPackInstallations();
    if (!ticket.stillApplies())
        co_return;
    if (account.syncState().kind != AccountSyncState::Kind::failed)
        m_store.setMessage(tr("Content Pack list updated."));
}

QCoro::Task<> PackFlows::refreshReleaseAndCatalogue() {
    const auto ticket = GenerationTicket::forMode(m_store);
    co_await m_store.updateFlow().checkDirectorRelease();
    if (ticket.stillApplies() && m_store.services().catalogueProvider)
        co_await refreshCatalogue();
}

QCoro::Task<> PackFlows::refreshCatalogue() {
    const auto ticket = GenerationTicket::forMode(m_store);
    const auto provider = m_store.services().catalogueProvider;
    if (m_store.demoEnabled() || !provider)
        co_return;

    QList<ContentPack> catalogue;
    try {
        catalogue = co_await provider->loadCatalogue();
    } catch (const std::exception&) {
        if (ticket.stillApplies())
            m_store.setMessage(tr("The public Content Pack catalogue could not be refreshed."));
        co_return;
    }
    if (!ticket.stillApplies())
        co_return;
    setPublicPacks(catalogue);
    setHasLoadedPublicCatalogue(true);
    m_store.setPacks(catalogue);
    co_await refreshPackInstallations();
    if (ticket.stillApplies())
        m_store.selectFirstPack();
}

QCoro::Task<> PackFlows::refreshPackInstallations() {
    const auto installer = m_store.services().contentPackInstaller;
    if (!installer)
        co_return;
    const auto ticket = GenerationTicket::forMode(m_store);
    const QHash<QString, QString> installed = co_await installer->installedPackVersions();
    // What is installed belongs to the production content store: after a switch to demo mode
    // (or another start) it says nothing about the packs shown.
    if (!ticket.stillApplies())
        co_return;

    QList<ContentPack> packs = m_store.packs();
    for (ContentPack& pack : packs) {
        const auto entry = installed.constFind(pack.id);
        if (entry != installed.constEnd()) {
            const auto installedVersion = SemanticVersion::parse(*entry);
            const auto catalogueVersion =
                pack.version ? SemanticVersion::parse(*pack.version) : std::nullopt;
            pack.installation =
                installedVersion && catalogueVersion && *installedVersion < *catalogueVersion
                    ? PackInstallation::updateAvailable
                    : PackInstallation::installed;
        } else if (pack.installation == PackInstallation::installed ||
                   pack.installation == PackInstallation::updateAvailable) {
            pack.installation = PackInstallation::notInstalled;
        }
    }
    m_store.setPacks(std::move(packs));
}

QCoro::Task<> PackFlows::installPack(QString packID) {
    const auto& packs = m_store.packs();
    const auto pack = std::find_if(packs.begin(), packs.end(), [&](const ContentPack& candidate) {
        return candidate.id == packID;
    });
    // A second press while the pack downloads starts nothing.
    if (pack == packs.end() || pack->installation == PackInstallation::downloading)
        co_return;
    const QString packName = pack->name;
    const PackInstallation before = pack->installation;
    if (m_store.demoEnabled()) {
        m_store.setMessage(
            tr("Demo mode did not install %1. Nothing was downloaded.").arg(packName));
        co_return;
    }
    const auto provider = m_store.accountFlows().accountProvider();
    if (!m_store.accountFlows().account() || !provider) {
        m_store.setMessage(tr("Sign in to install Content Packs owned by your account."));
        co_return;
    }
    setInstallation(packID, PackInstallation::downloading);
    m_store.setMessage(std::nullopt);

    const auto ticket = GenerationTicket::forMode(m_store);
    const auto installer = m_store.services().contentPackInstaller;
    auto* transfer = new Transfer(this);
    setTransfer(packID, transfer);
    // The transfer goes with the download, whatever ends it.
    const ClearOnExit downloading(*this, [packID, transfer](PackFlows& flows) {
        flows.setTransfer(packID, nullptr);
        transfer->deleteLater();
    });
    TransferControl control = transfer->control();
    std::optional<QString> failure;
    bool cancelled = false;
    try {
        if (!installer)
            throw LaunchError::notConfigured(tr("Content Pack installation"));
        LaunchContentPackManifest manifest = co_await provider->downloadContentPackManifest();
        if (!ticket.stillApplies())
            co_return;
        control.throwIfCancelled();
        co_await installer->install(packID, std::move(manifest), control);
    } catch (const std::exception& error) {
        // Whatever went wrong, the pack must not stay "downloading".
        const auto* launchError = dynamic_cast<const LaunchError*>(&error);
        cancelled = launchError && launchError->isUrlError(LaunchError::cancelled) &&
                    transfer->cancelRequested();
        failure = LaunchError::describe(error);
    }
    if (!ticket.stillApplies())
        co_return;
    if (cancelled) {
        // Nothing changed in the content store: the pack is what it was before.
        setInstallation(packID, before);
        m_store.setMessage(
            tr("The installation of %1 was cancelled. Nothing was changed.").arg(packName));
        co_return;
    }
    if (failure) {
        setInstallation(packID, PackInstallation::failed);
        m_store.setMessage(*failure);
        co_return;
    }

    co_await tellDirector();
    if (!ticket.stillApplies())
        co_return;
    m_store.setMessage(tr("%1 is installed and ready in Vantor Creator.").arg(packName));
    co_await refreshPackInstallations();
}

// Telling Vantor Director is a courtesy; the pack is installed either way.
QCoro::Task<> PackFlows::tellDirector() {
    const auto director = m_store.appWithID(m_store.configuration().director.name);
    if (!director || !director->path)
        co_return;
    const QUrl notification(u"vantordirector://content-pack-installed"_s);
    const QUrl directorPath = *director->path;
    const Workspace::OpenOptions quietly{false, false};
    const auto workspace = m_store.services().workspace;
    try {
        co_await workspace->openURL(notification, directorPath, quietly);
    } catch (const std::exception&) {
    }
}

void PackFlows::cancelInstall(const QString& packID) {
    if (const QPointer<Transfer> transfer = m_transfers.value(packID))
        transfer->cancel();
}

QCoro::Task<> PackFlows::openContentPackManagement() {
    if (m_store.demoEnabled()) {
        m_store.setMessage(
            tr("Demo mode did not open Vantor Creator or change installed content."));
        co_return;
    }
    const auto director = m_store.appWithID(m_store.configuration().director.name);
    if (!director || !director->path) {
        m_store.setMessage(
            tr("Install Vantor Director to manage Content Packs in Vantor Creator."));
        co_return;
    }
    const auto build = director->build ? parseDecimalInteger(*director->build) : std::nullopt;
    if (build && *build < 127) {
        m_store.applicationFlows().open(*director);
        m_store.setMessage(tr("In Vantor Creator, choose Content Pack Management. Direct Content "
                              "Pack handoff is available from build 127 onward."));
        co_return;
    }

    const auto ticket = GenerationTicket::forMode(m_store);
    const QUrl library(u"vantordirector://content-packs"_s);
    const QUrl directorPath = *director->path;
    const Workspace::OpenOptions inFront{true, true};
    const auto workspace = m_store.services().workspace;
    bool opened = true;
    try {
        co_await workspace->openURL(library, directorPath, inFront);
    } catch (const std::exception&) {
        opened = false;
    }
    if (!opened || !ticket.stillApplies())
        co_return;
    QTimer delay;
    delay.setSingleShot(true);
    delay.start(400);
    co_await delay;
    const auto notifier = m_store.services().notifier;
    if (ticket.stillApplies() && notifier)
        notifier->post(u"nz.co.halvex.VantorDirector.OpenContentPackLibrary"_s);
}

void PackFlows::forgetCatalogue() {
    setPublicPacks({});
    setHasLoadedPublicCatalogue(false);
}

void PackFlows::setInstallation(const QString& packID, PackInstallation installation) {
    QList<ContentPack> packs = m_store.packs();
    for (ContentPack& pack : packs) {
        if (pack.id == packID)
            pack.installation = installation;
    }
    m_store.setPacks(std::move(packs));
}

void PackFlows::setTransfer(const QString& packID, Transfer* transfer) {
    if (transfer)
        m_transfers.insert(packID, transfer);
    else if (!m_transfers.remove(packID))
        return;
    Q_EMIT transfersChanged();
}

void PackFlows::setIsRefreshingContentPacks(bool refreshing) {
    assignProperty(this, m_isRefreshingContentPacks, refreshing,
                   &PackFlows::isRefreshingContentPacksChanged);
}

void PackFlows::setPublicPacks(QList<ContentPack> packs) {
    assignProperty(this, m_publicPacks, std::move(packs), &PackFlows::publicPacksChanged);
}

void PackFlows::setHasLoadedPublicCatalogue(bool loaded) {
    assignProperty(this, m_hasLoadedPublicCatalogue, loaded,
                   &PackFlows::hasLoadedPublicCatalogueChanged);
}
