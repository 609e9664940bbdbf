// Runs one real pack install or one real update, as the launcher would, so that a test can kill
// it at any moment and look at what it left.
//   transfer_child <pause> pack <manifest.json> <pack id> <authority.pem>
//   transfer_child <pause> update <installed.app> <archive URL> <version> <build> <authority.pem>
//                  <anchor.pem> <bundle identifier>
// It pauses <pause> milliseconds after each step of putting the work in place, so that a kill
// lands in every step often enough.
// Exits 0 when the work succeeded, 1 when it failed (the reason on standard error), 2 for bad use.

#include "account/WebsiteResponses.h"
#include "applications/ProductionApplicationUpdater.h"
#include "content_packs/ProductionContentPackInstaller.h"
#include "foundation/TrustingNetworkAccessManager.h"
#include "platform/linux/CmsCodeSignature.h"
#include "platform/linux/LibarchiveExtractor.h"
#include "platform/linux/LinuxWorkspace.h"
#include "platform/linux/RenameExchangeReplacement.h"

#include <QCoreApplication>
#include <QFile>
#include <QSslCertificate>
#include <QThread>
#include <cstdio>

namespace {

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

std::shared_ptr<QNetworkAccessManager> trusting(const QString& authority) {
    return std::make_shared<TrustingNetworkAccessManager>(
        QSslCertificate::fromData(contents(authority), QSsl::Pem));
}

QCoro::Task<> run(QStringList arguments) {
    const unsigned long pause = arguments.size() > 1 ? arguments.takeAt(1).toULong() : 0;
    const auto pauseAfter = [pause](auto) { QThread::msleep(pause); };
    int code = 1;
    try {
        if (arguments.value(1) == QLatin1String("pack") && arguments.size() == 5) {
            ProductionContentPackInstaller installer(trusting(arguments[4]), {}, pauseAfter);
            // Named first: GCC 12 mishandles temporaries built inside a co_await.
            LaunchContentPackManifest manifest =
                WebsiteResponses::decodeContentPackManifest(contents(arguments[2]));
            const QString packID = arguments[3];
            co_await installer.install(packID, std::move(manifest), {});
            code = 0;
        } else if (arguments.value(1) == QLatin1String("update") && arguments.size() == 9) {
            ProductionApplicationUpdater updater(
                {trusting(arguments[6]), std::make_shared<LinuxWorkspace>(),
                 std::make_shared<LibarchiveExtractor>(),
                 std::make_shared<CmsCodeSignature>(QList{contents(arguments[7])}, false),
                 std::make_shared<RenameExchangeReplacement>(pauseAfter)});
            const AvailableApplicationRelease release{arguments[4], arguments[5],
                                                      QUrl(arguments[3])};
            const QUrl installed = QUrl::fromLocalFile(arguments[2]);
            const QStringList identifiers{arguments[8]};
            co_await updater.installUpdate(release, installed, identifiers, {});
            code = 0;
        } else {
            code = 2;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    QCoreApplication::exit(code);
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    auto task = run(application.arguments());
    return application.exec();
}
