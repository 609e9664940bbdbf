#pragma once

#include "BundleBuilder.h"
#include "BundleProcesses.h"
#include "HttpsTestServer.h"
#include "SigningFixture.h"
#include "ZipWriter.h"
#include "applications/ProductionApplicationUpdater.h"
#include "foundation/LaunchConfiguration.h"
#include "platform/BundleMetadata.h"
#include "platform/linux/CmsCodeSignature.h"
#include "platform/linux/LibarchiveExtractor.h"
#include "platform/linux/LinuxWorkspace.h"
#include "platform/linux/RenameExchangeReplacement.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <csignal>
#include <functional>
#include <unistd.h>

// An installed, signed Director 2.4.1 in a throwaway Applications folder, releases built and
// signed on demand, and an HTTPS server that publishes them as zip archives.
class UpdateFixture {
public:
    // Unique to this run: any process on the machine running a bundle with the product's
    // identifier blocks an update, and other programs may well run a Director here.
    static inline const QString directorID =
        QStringLiteral("nz.co.halvex.VantorDirector.test%1").arg(::getpid());
    static inline const QString downloadPath = QStringLiteral("/downloads/director.zip");

    QTemporaryDir root;
    HttpsTestServer server;
    SigningFixture signing;
    QString applications = root.filePath(QStringLiteral("home/Applications"));
    // Short enough that a silent or crawling server is seen within a test.
    StreamingDownload::Limits limits{2000, 64, 3000};
    BundleSpec installedSpec{directorID, QStringLiteral("2.4.1"), QStringLiteral("2410")};
    QUrl installed;
    QList<qint64> startedProcesses;

    UpdateFixture() {
        // A real program as executable, so that a copy started from the bundle shows as running.
        installed = writeBundle(applications, QStringLiteral("Vantor Director.app"), installedSpec);
        useTestApp(installed, installedSpec);
        SigningFixture::sign(installed, directorID, signing.developerA);
    }

    ~UpdateFixture() {
        for (const qint64 processId : std::as_const(startedProcesses))
            ::kill(pid_t(processId), SIGKILL);
    }

    static void useTestApp(const QUrl& bundle, const BundleSpec& spec) {
        const QString executable = BundleProcesses::executablePath(bundle, spec);
        if (!QFile::remove(executable) || !QFile::copy(QStringLiteral(BUNDLE_TEST_APP), executable))
            qFatal("could not put the test application into a bundle");
    }

    // The production configuration with this run's Director identifier.
    static LaunchConfiguration configuration() {
        LaunchConfiguration configuration = LaunchConfiguration::production();
        configuration.director.bundleIdentifiers = {directorID,
                                                    directorID + QStringLiteral(".alias")};
        return configuration;
    }

    std::shared_ptr<CodeSignature> signature() const {
        return std::make_shared<CmsCodeSignature>(
            QList<QByteArray>{signing.authority.certificatePem()}, false);
    }

    // On this fixture's server and signing authority; checked, when given, checks the signatures.
    std::shared_ptr<ProductionApplicationUpdater>
    makeUpdater(std::shared_ptr<CodeSignature> checked = nullptr) const {
        return std::make_shared<ProductionApplicationUpdater>(
            ProductionApplicationUpdater::Services{
                server.makeNetworkAccess(), std::make_shared<LinuxWorkspace>(),
                std::make_shared<LibarchiveExtractor>(), checked ? checked : signature(),
                std::make_shared<RenameExchangeReplacement>()},
            limits);
    }

    // A bundle folder under build/<folder>/<name>, signed unless signer is null.
    QString buildRelease(const QString& folder, const QString& name, const BundleSpec& spec,
                         const TestCertificateAuthority::Issued* signer,
                         const QString& signingIdentifier = directorID) {
        const QString parent = root.filePath(QStringLiteral("build/") + folder);
        const QUrl bundle = writeBundle(parent, name, spec);
        useTestApp(bundle, spec);
        if (signer)
            SigningFixture::sign(bundle, signingIdentifier, *signer);
        return bundle.toLocalFile();
    }

    QString buildRelease(const BundleSpec& spec) {
        return buildRelease(QStringLiteral("release"), QStringLiteral("Vantor Director.app"), spec,
                            &signing.developerA);
    }

    static BundleSpec releaseSpec(const QString& version = QStringLiteral("2.5.0"),
                                  const QString& build = QStringLiteral("2500")) {
        return BundleSpec{directorID, version, build};
    }

    // Serves the archive that contents writes at downloadPath.
    void publish(const std::function<void(ZipWriter&)>& contents) {
        const QString path = root.filePath(QStringLiteral("published.zip"));
        {
            ZipWriter zip(path);
            contents(zip);
        }
        HttpsTestServer::Response response(200, {}, "application/zip");
        response.filePath = path;
        server.reply(QStringLiteral("GET"), downloadPath, response);
    }

    void publishBundle(const QString& bundle) {
        publish([&](ZipWriter& zip) { zip.addTree(bundle, "Vantor Director.app"); });
    }

    AvailableApplicationRelease
    release(const QString& version = QStringLiteral("2.5.0"),
            std::optional<QString> build = QStringLiteral("2500")) const {
        return {version, std::move(build), server.url(downloadPath)};
    }

    // Empty when the installed bundle has none or is gone.
    QString installedVersion() const {
        const auto metadata = readBundleMetadata(installed);
        return metadata ? metadata->version.value_or(QString()) : QString();
    }

    // Starts the installed copy as the user would, from its own executable.
    qint64 startInstalledCopy() {
        qint64 processId = 0;
        if (!QProcess::startDetached(BundleProcesses::executablePath(installed, installedSpec), {},
                                     {}, &processId))
            return 0;
        startedProcesses.append(processId);
        return processId;
    }

    // What the updater left behind: no work folder or lock beside the installed bundle.
    QStringList leftovers() const {
        return QDir(applications)
            .entryList({QStringLiteral(".vantor-launch-*")},
                       QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    }
};
