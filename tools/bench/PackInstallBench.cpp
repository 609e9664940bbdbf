// Installing a pack of large assets from the sample website, against curl fetching the same files
// followed by sha256sum, in the same run; and the installer's peak memory. The launcher's own
// account client signs in and downloads the pack manifest from the website's endpoints first.
// Usage: pack_install_bench [assets=8] [megabytes=64] [rounds=2]
#include "BenchBundles.h"
#include "BenchWebsite.h"
#include "content_packs/ContentStore.h"
#include "content_packs/ProductionContentPackInstaller.h"
#include "foundation/LaunchError.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <qcorotimer.h>

using namespace Qt::StringLiterals;

namespace {

double curlAndSha256sum(const QString& caFile, const QList<QUrl>& urls, const QString& folder) {
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
    QStringList curl{u"-sS"_s, u"--fail"_s, u"--cacert"_s, caFile};
    QStringList files;
    for (int i = 0; i < urls.size(); ++i) {
        files.append(QDir(folder).filePath(u"asset%1"_s.arg(i)));
        curl << u"-o"_s << files.last() << urls[i].toString();
    }
    QElapsedTimer clock;
    clock.start();
    QProcess process;
    process.start(u"curl"_s, curl);
    if (!process.waitForFinished(600'000) || process.exitCode() != 0)
        qFatal("curl failed: %s", process.readAllStandardError().constData());
    process.start(u"sha256sum"_s, files);
    if (!process.waitForFinished(600'000) || process.exitCode() != 0)
        qFatal("sha256sum failed");
    return clock.nsecsElapsed() / 1e9;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    const int assets = argc > 1 ? std::atoi(argv[1]) : 8;
    const qint64 megabytes = argc > 2 ? std::atoll(argv[2]) : 64;
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 2;

    QTemporaryDir root;
    qputenv("HOME", QFile::encodeName(root.filePath(u"home"_s)));
    qputenv("XDG_DATA_HOME", QFile::encodeName(root.filePath(u"home/data"_s)));
    qputenv("TMPDIR", QFile::encodeName(root.filePath(u"tmp"_s)));
    QDir().mkpath(root.filePath(u"tmp"_s));

    std::printf("Preparing %d assets of %lld MB for the sample website...\n", assets,
                static_cast<long long>(megabytes));
    std::fflush(stdout);
    const QString data = root.filePath(u"website"_s);
    QStringList assetFiles;
    for (int i = 0; i < assets; ++i) {
        assetFiles.append(u"bench/asset-%1.vdasset"_s.arg(i));
        BenchWebsite::writeRandomFile(data + u"/files/"_s + assetFiles.last(), megabytes << 20);
    }
    BenchWebsite::writeDocuments(data, assetFiles, std::nullopt);
    const BenchWebsite::Site site(data, root.path());

    // One manager for the account client and the installer, as in the launcher.
    const auto network = site.makeNetworkAccess();
    const auto account = BenchWebsite::makeAccountClient(site, network);
    QCoro::waitFor(account->signIn());
    const LaunchContentPackManifest manifest =
        QCoro::waitFor(account->downloadContentPackManifest());
    QList<QUrl> urls;
    for (const auto& asset : manifest.assets)
        urls.append(asset.remoteProtectedAssetURL.value_or(QUrl()));
    if (urls.size() != assets)
        qFatal("the website published %lld assets, not %d", static_cast<long long>(urls.size()),
               assets);

    ProductionContentPackInstaller installer(network);
    double bestCurl = 1e9;
    double bestInstall = 1e9;
    double peak = 0;
    // The longest time the event loop went without turning while the installer ran.
    QElapsedTimer sinceTick;
    qint64 longestGap = 0;
    QTimer ticker;
    ticker.setInterval(1);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        longestGap = std::max(longestGap, sinceTick.nsecsElapsed());
        sinceTick.restart();
    });
    // What the machine itself costs the event loop: the same ticker, idle, for a second.
    sinceTick.start();
    ticker.start();
    QCoro::waitFor(QCoro::sleepFor(std::chrono::seconds(1)));
    ticker.stop();
    const qint64 idleGap = std::exchange(longestGap, 0);
    for (int round = 0; round < rounds; ++round) {
        const double curl = curlAndSha256sum(site.authorityPath, urls, root.filePath(u"curl"_s));
        bestCurl = std::min(bestCurl, curl);

        // Each round installs into an empty content store, so that none pays for removing the
        // last one's pack.
        const QString store = ContentStore::locate().folder;
        if (!store.startsWith(root.path() + u'/'))
            qFatal("the content store %s is not the benchmark's own", qPrintable(store));
        QDir(store).removeRecursively();
        BenchBundles::resetPeakResident();
        QElapsedTimer clock;
        clock.start();
        sinceTick.start();
        ticker.start();
        try {
            QCoro::waitFor(installer.install(BenchWebsite::packID, manifest, {}));
        } catch (const LaunchError& error) {
            qFatal("the install failed: %s", qPrintable(error.description()));
        }
        const double seconds = clock.nsecsElapsed() / 1e9;
        ticker.stop();
        peak = std::max(peak, BenchBundles::peakResidentMegabytes());
        bestInstall = std::min(bestInstall, seconds);
        std::printf("round %d: curl + sha256sum %.2f s, installer %.2f s\n", round + 1, curl,
                    seconds);
        std::fflush(stdout);
    }
    std::printf("%d assets x %lld MB: curl + sha256sum %.2f s, installer %.2f s, ratio %.2f "
                "(goal <= 1.2); installer peak memory %.1f MB, website included (goal < 100 MB); "
                "longest event loop stall %.1f ms (%.1f ms when idle)\n",
                assets, static_cast<long long>(megabytes), bestCurl, bestInstall,
                bestInstall / bestCurl, peak, longestGap / 1e6, idleGap / 1e6);
    BenchBundles::printSummary(
        "pack_install", bestInstall / bestCurl, "curl + sha256sum", "<= 1.2, memory < 100 MB", peak,
        QString::asprintf("installer %.2f s, shell %.2f s (%d x %lld MB, best of %d)", bestInstall,
                          bestCurl, assets, static_cast<long long>(megabytes), rounds)
            .toStdString());
    return 0;
}
