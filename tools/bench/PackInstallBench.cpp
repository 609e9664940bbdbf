// Installing a pack of large assets from the sample website, against curl fetching the same files
// from the same server into /dev/null, several at a time as a user would, in the same run, and
// against a shell doing the installer's work (curl into files, sha256sum, sync); the installer's
// peak memory and the longest stall of its event loop. The launcher's own account
// client signs in and downloads the pack manifest from the website's endpoints first.
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

// As many transfers at once as the installer runs.
constexpr int parallelTransfers = 4;

// curl's options for fetching as many files at once as the installer does.
QStringList parallelCurl(const QString& caFile) {
    return {u"-sS"_s,
            u"--fail"_s,
            u"--cacert"_s,
            caFile,
            u"--parallel"_s,
            u"--parallel-max"_s,
            QString::number(parallelTransfers)};
}

double curlToNull(const QString& caFile, const QList<QUrl>& urls) {
    QStringList curl = parallelCurl(caFile);
    for (const QUrl& url : urls)
        curl << u"-o"_s << u"/dev/null"_s << url.toString();
    QElapsedTimer clock;
    clock.start();
    QProcess process;
    process.start(u"curl"_s, curl);
    if (!process.waitForFinished(600'000) || process.exitCode() != 0)
        qFatal("curl failed: %s", process.readAllStandardError().constData());
    return clock.nsecsElapsed() / 1e9;
}

// The same work done in a shell, for comparison: curl writes the files, sha256sum proves them and
// sync puts them on the disk, as the installer does before it publishes a pack.
double curlHashAndSync(const QString& caFile, const QList<QUrl>& urls, const QString& folder) {
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
    QStringList curl = parallelCurl(caFile);
    QStringList files;
    for (qsizetype index = 0; index < urls.size(); ++index) {
        files << u"%1/asset-%2"_s.arg(folder).arg(index);
        curl << u"-o"_s << files.last() << urls[index].toString();
    }
    QElapsedTimer clock;
    clock.start();
    const QList<std::pair<QString, QStringList>> steps{
        {u"curl"_s, curl}, {u"sha256sum"_s, files}, {u"sync"_s, QStringList{u"-f"_s} + files}};
    for (const auto& [program, arguments] : steps) {
        QProcess process;
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(program, arguments);
        if (!process.waitForFinished(600'000) || process.exitCode() != 0)
            qFatal("%s failed: %s", qPrintable(program),
                   process.readAllStandardError().constData());
    }
    const double seconds = clock.nsecsElapsed() / 1e9;
    QDir(folder).removeRecursively();
    return seconds;
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
    double bestShell = 1e9;
    // CPU seconds of each side's best round, the website's share included in both: on a busy
    // machine the times say as much about the neighbours as about the work.
    double curlCPU = 0;
    double installCPU = 0;
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
        const double cpuBeforeCurl =
            BenchBundles::cpuMilliseconds() + BenchBundles::childrenCpuMilliseconds();
        const double curl = curlToNull(site.authorityPath, urls);
        const double cpuOfCurl = (BenchBundles::cpuMilliseconds() +
                                  BenchBundles::childrenCpuMilliseconds() - cpuBeforeCurl) /
                                 1e3;
        if (curl < bestCurl)
            curlCPU = cpuOfCurl;
        bestCurl = std::min(bestCurl, curl);
        const double shell = curlHashAndSync(site.authorityPath, urls, root.filePath(u"shell"_s));
        bestShell = std::min(bestShell, shell);

        // Each round installs into an empty content store, so that none pays for removing the
        // last one's pack.
        const QString store = ContentStore::locate().folder;
        if (!store.startsWith(root.path() + u'/'))
            qFatal("the content store %s is not the benchmark's own", qPrintable(store));
        QDir(store).removeRecursively();
        BenchBundles::resetPeakResident();
        const double cpuBeforeInstall = BenchBundles::cpuMilliseconds();
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
        const double cpuOfInstall = (BenchBundles::cpuMilliseconds() - cpuBeforeInstall) / 1e3;
        // Its idle connections would hold the website's workers that curl needs next.
        network->clearConnectionCache();
        if (seconds < bestInstall)
            installCPU = cpuOfInstall;
        ticker.stop();
        peak = std::max(peak, BenchBundles::peakResidentMegabytes());
        bestInstall = std::min(bestInstall, seconds);
        std::printf("round %d: curl %.2f s (CPU %.2f s), curl + sha256sum + sync %.2f s, "
                    "installer %.2f s (CPU %.2f s)\n",
                    round + 1, curl, cpuOfCurl, shell, seconds, cpuOfInstall);
        std::fflush(stdout);
    }

    // A new version of the pack with the same files: each is proven from disk and linked, none
    // is fetched. The last round's install is the version it replaces.
    LaunchContentPackManifest update = manifest;
    for (auto& pack : update.contentPacks)
        pack.version = u"2"_s;
    for (auto& asset : update.assets)
        asset.contentPackVersion = u"2"_s;
    QElapsedTimer updateClock;
    updateClock.start();
    sinceTick.start();
    ticker.start();
    try {
        QCoro::waitFor(installer.install(BenchWebsite::packID, update, {}));
    } catch (const LaunchError& error) {
        qFatal("the update failed: %s", qPrintable(error.description()));
    }
    const double updateSeconds = updateClock.nsecsElapsed() / 1e9;
    ticker.stop();
    std::printf("update with every file unchanged: %.2f s\n", updateSeconds);

    std::printf("%d assets x %lld MB: curl -o /dev/null %.2f s, installer %.2f s, ratio %.2f "
                "(goal <= 1.1); installer peak memory %.1f MB, website included (goal < 100 MB); "
                "longest event loop stall %.1f ms (goal < 50 ms; %.1f ms when idle); CPU with the "
                "website's share: curl %.2f s, installer %.2f s\n",
                assets, static_cast<long long>(megabytes), bestCurl, bestInstall,
                bestInstall / bestCurl, peak, longestGap / 1e6, idleGap / 1e6, curlCPU, installCPU);
    BenchBundles::printSummary(
        "pack_install", bestInstall / bestCurl, "curl -o /dev/null",
        "<= 1.1, memory < 100 MB, stall < 50 ms", peak,
        QString::asprintf("installer %.2f s, curl %.2f s (%d x %lld MB, %d at a time, best of "
                          "%d; CPU %.2f s against %.2f s); the same work in a shell (curl to "
                          "files, sha256sum, sync) %.2f s, ratio %.2f; longest stall %.1f ms; "
                          "unchanged update %.2f s",
                          bestInstall, bestCurl, assets, static_cast<long long>(megabytes),
                          parallelTransfers, rounds, installCPU, curlCPU, bestShell,
                          bestInstall / bestShell, longestGap / 1e6, updateSeconds)
            .toStdString());
    return 0;
}
