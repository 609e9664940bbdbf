#include "foundation/LaunchError.h"
#include "foundation/SemanticVersion.h"
#include "store/ClearOnExit.h"
#include "store/GenerationTicket.h"
#include "store/LaunchStore.h"

#include <QTimer>
#include <qcorotimer.h>

using namespace Qt::StringLiterals;
using Launch::PackInstallation;

QCoro::Task<> LaunchStore::refreshContentPacks() {
    if (m_isRefreshingContentPacks)
        co_return;
    if (m_demoEnabled) {
        setMessage(u"Demo mode did not refresh production Content Packs."_s);
        co_return;
    }
    setIsRefreshingContentPacks(true);
    const ClearOnExit refreshing(
        *this, [](LaunchStore& store) { store.setIsRefreshingContentPacks(false); });
    const auto ticket = GenerationTicket::forMode(*this);
    if (m_account) {
        co_await refreshAccount();
        if (!ticket.stillApplies())
            co_return;
    }
    co_await refreshReleaseAndCatalogue();
    if (!ticket.stillApplies())
        co_return;
    co_await refreshPackInstallations();
    if (!ticket.stillApplies())
        co_return;
    if (m_syncState.kind != AccountSyncState::Kind::failed)
        setMessage(u"Content Pack list updated."_s);
}

QCoro::Task<> LaunchStore::refreshCatalogue() {
    const auto ticket = GenerationTicket::forMode(*this);
    if (m_demoEnabled || !m_services.catalogueProvider)
        co_return;

    QList<ContentPack> catalogue;
    try {
        catalogue = co_await m_services.catalogueProvider->loadCatalogue();
    } catch (const std::exception&) {
        if (ticket.stillApplies())
            setMessage(u"The public Content Pack catalogue could not be refreshed."_s);
        co_return;
    }
    if (!ticket.stillApplies())
        co_return;
    setPublicPacks(catalogue);
    setHasLoadedPublicCatalogue(true);
    setPacks(catalogue);
    co_await refreshPackInstallations();
    if (ticket.stillApplies())
        selectFirstPack();
}

QCoro::Task<> LaunchStore::refreshPackInstallations() {
    if (!m_services.contentPackInstaller)
        co_return;
    const auto ticket = GenerationTicket::forMode(*this);
    const auto installer = m_services.contentPackInstaller;
    const QHash<QString, QString> installed = co_await installer->installedPackVersions();
    // What is installed belongs to the production content store: after a switch to demo mode
    // (or another start) it says nothing about the packs shown.
    if (!ticket.stillApplies())
        co_return;

    QList<ContentPack> packs = m_packs;
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
    setPacks(std::move(packs));
}

QCoro::Task<> LaunchStore::installPack(QString packID) {
    const auto pack =
        std::find_if(m_packs.begin(), m_packs.end(),
                     [&](const ContentPack& candidate) { return candidate.id == packID; });
    // A second press while the pack downloads starts nothing.
    if (pack == m_packs.end() || pack->installation == PackInstallation::downloading)
        co_return;
    const QString packName = pack->name;
    if (m_demoEnabled) {
        setMessage(u"Demo mode did not install "_s + packName + u". Nothing was downloaded."_s);
        co_return;
    }
    if (!m_account || !m_accountProvider) {
        setMessage(u"Sign in to install Content Packs owned by your account."_s);
        co_return;
    }
    setPackInstallation(packID, PackInstallation::downloading);
    setMessage(std::nullopt);

    const auto ticket = GenerationTicket::forMode(*this);
    const auto provider = m_accountProvider;
    const auto installer = m_services.contentPackInstaller;
    std::optional<QString> failure;
    const QPointer<LaunchStore> guard(this);
    TransferControl control;
    control.progress = [guard, packID](qint64 received, qint64 expected) {
        if (guard)
            guard->setPackProgress(packID, std::pair{received, expected});
    };
    // The progress entry goes with the download, whatever ends it.
    const ClearOnExit downloading(
        *this, [packID](LaunchStore& store) { store.setPackProgress(packID, std::nullopt); });
    try {
        if (!installer)
            throw LaunchError::notConfigured(u"Content Pack installation"_s);
        LaunchContentPackManifest manifest = co_await provider->downloadContentPackManifest();
        if (!ticket.stillApplies())
            co_return;
        co_await installer->install(packID, std::move(manifest), control);
    } catch (const std::exception& error) {
        // Whatever went wrong, the pack must not stay "downloading".
        failure = LaunchError::describe(error);
    }
    if (!ticket.stillApplies())
        co_return;
    if (failure) {
        setPackInstallation(packID, PackInstallation::failed);
        setMessage(*failure);
        co_return;
    }

    const InstalledApp* director = findApp(configuration().director.name);
    if (director && director->path) {
        const QUrl notification(u"vantordirector://content-pack-installed"_s);
        const QUrl directorPath = *director->path;
        const Workspace::OpenOptions quietly{false, false};
        try {
            co_await m_services.workspace->openURL(notification, directorPath, quietly);
        } catch (const std::exception&) {
            // Telling Vantor Director is a courtesy; the pack is installed either way.
        }
        if (!ticket.stillApplies())
            co_return;
    }
    setMessage(packName + u" is installed and ready in Vantor Creator."_s);
    co_await refreshPackInstallations();
}

QCoro::Task<> LaunchStore::openContentPackManagement() {
    if (m_demoEnabled) {
        setMessage(u"Demo mode did not open Vantor Creator or change installed content."_s);
        co_return;
    }
    const auto director = appWithID(configuration().director.name);
    if (!director || !director->path) {
        setMessage(u"Install Vantor Director to manage Content Packs in Vantor Creator."_s);
        co_return;
    }
    const auto build = director->build ? parseDecimalInteger(*director->build) : std::nullopt;
    if (build && *build < 127) {
        open(*director);
        setMessage(
            u"In Vantor Creator, choose Content Pack Management. Direct Content Pack handoff is available from build 127 onward."_s);
        co_return;
    }

    const auto ticket = GenerationTicket::forMode(*this);
    const QUrl library(u"vantordirector://content-packs"_s);
    const QUrl directorPath = *director->path;
    const Workspace::OpenOptions inFront{true, true};
    bool opened = true;
    try {
        co_await m_services.workspace->openURL(library, directorPath, inFront);
    } catch (const std::exception&) {
        opened = false;
    }
    if (!opened || !ticket.stillApplies())
        co_return;
    QTimer delay;
    delay.setSingleShot(true);
    delay.start(400);
    co_await delay;
    if (ticket.stillApplies() && m_services.notifier)
        m_services.notifier->post(u"nz.co.halvex.VantorDirector.OpenContentPackLibrary"_s);
}

void LaunchStore::setPackProgress(const QString& packID,
                                  std::optional<std::pair<qint64, qint64>> receivedOfExpected) {
    if (!receivedOfExpected && !m_packProgress.contains(packID))
        return;
    if (receivedOfExpected)
        m_packProgress.insert(packID, QVariantMap{{u"received"_s, receivedOfExpected->first},
                                                  {u"expected"_s, receivedOfExpected->second}});
    else
        m_packProgress.remove(packID);
    Q_EMIT packProgressChanged();
}
