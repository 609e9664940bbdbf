// The verified update of a large release, end to end (HTTPS download unpacked as it arrives,
// signature and seal check of both copies, atomic replacement), against the same steps done by
// curl, unzip, openssl cms -verify and sha256sum in a shell, in the same run on the same files.
// Then Director's downtime with a prepared release: from the polite close of a running copy to
// the new version running. The sample website publishes the release; the launcher's release
// check reads where to download it.
// Usage: updater_bench [megabytes=300] [runs=3]
#include "BenchBundles.h"
#include "BenchWebsite.h"
#include "BundleBuilder.h"
#include "SigningFixture.h"
#include "ZipWriter.h"
#include "applications/DirectorReleaseChecker.h"
#include "applications/ProductionApplicationUpdater.h"
#include "platform/linux/CmsCodeSignature.h"
#include "platform/linux/LibarchiveExtractor.h"
#include "platform/linux/LinuxWorkspace.h"
#include "platform/linux/RenameExchangeReplacement.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <random>

using namespace Qt::StringLiterals;

namespace {

// Not the product's identifier: a Director running anywhere on the machine would block the update.
const QString identifier = u"nz.co.halvex.VantorDirector.bench"_s;

// Like a real application: a few large resources and many small files, partly compressible.
void fillBundle(const QString& bundle, qint64 megabytes) {
    std::mt19937_64 random(42);
    const auto block = [&](qint64 size) {
        QByteArray bytes(size, Qt::Uninitialized);
        auto* words = reinterpret_cast<quint64*>(bytes.data());
        for (qint64 index = 0; index < size / 8; ++index)
            words[index] = index % 4 == 3 ? 0x2020202020202020ULL : random();
        return bytes;
    };
    const QString resources = bundle + u"/Contents/Resources"_s;
    QDir().mkpath(resources + u"/small"_s);
    const qint64 smallFiles = 2000;
    const qint64 smallSize = 8 * 1024;
    const qint64 large = (megabytes << 20) - smallFiles * smallSize;
    const qint64 largeSize = qint64(10) << 20;
    for (qint64 written = 0, index = 0; written < large; written += largeSize, ++index) {
        QFile file(resources + u"/media-%1.bin"_s.arg(index));
        file.open(QIODevice::WriteOnly);
        file.write(block(std::min(largeSize, large - written)));
    }
    for (qint64 index = 0; index < smallFiles; ++index) {
        QFile file(resources + u"/small/item-%1.dat"_s.arg(index));
        file.open(QIODevice::WriteOnly);
        file.write(block(smallSize));
    }
}

QString writeSums(const QString& bundle, const QString& sumsFile) {
    QFile sums(sumsFile);
    sums.open(QIODevice::WriteOnly);
    QDirIterator files(bundle, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    const QDir root(bundle);
    while (files.hasNext()) {
        const QString path = files.next();
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        QCryptographicHash hash(QCryptographicHash::Sha256);
        hash.addData(&file);
        sums.write(hash.result().toHex() + "  " + root.relativeFilePath(path).toUtf8() + '\n');
    }
    return sumsFile;
}

void copyTree(const QString& from, const QString& to) {
    QDir(to).removeRecursively();
    QProcess::execute(u"cp"_s, {u"-a"_s, from, to});
}

// A compiled program as the bundle's executable, so that a copy started from it runs from the
// bundle and shows as running; done before signing.
void useCompiledExecutable(const QString& bundle) {
    const QString executable = bundle + u"/Contents/MacOS/launcher-test-app"_s;
    QFile::remove(executable);
    if (!QFile::copy(QStandardPaths::findExecutable(u"sleep"_s), executable))
        qFatal("cannot put a program into the bundle");
}

// Runs the event loop until the condition holds; false after 30 s.
template <typename Condition>
bool waitUntil(Condition condition) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > 30'000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

template <typename T>
bool finish(QCoro::Task<T>& task) {
    while (!task.isReady())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    return true;
}

double median(QList<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    const qint64 megabytes = argc > 1 ? std::atoll(argv[1]) : 300;
    const int runs = argc > 2 ? std::atoi(argv[2]) : 3;

    QTemporaryDir root(QDir::currentPath() + u"/updater-bench-XXXXXX"_s);
    const QString work = root.path();
    SigningFixture signing;

    std::printf("Preparing a %lld MB release...\n", megabytes);
    const QString pristine = work + u"/pristine/Vantor Director.app"_s;
    writeBundle(work + u"/pristine"_s, u"Vantor Director.app"_s,
                {identifier, u"2.4.1"_s, u"2410"_s});
    fillBundle(pristine, megabytes);
    useCompiledExecutable(pristine);
    SigningFixture::sign(QUrl::fromLocalFile(pristine), identifier, signing.developerA);

    const QString release = work + u"/release/Vantor Director.app"_s;
    writeBundle(work + u"/release"_s, u"Vantor Director.app"_s,
                {identifier, u"2.5.0"_s, u"2500"_s});
    fillBundle(release, megabytes);
    useCompiledExecutable(release);
    SigningFixture::sign(QUrl::fromLocalFile(release), identifier, signing.developerA);
    const QString data = work + u"/website"_s;
    const QString archive = data + u"/updates/VantorDirector-2.5.0.zip"_s;
    QDir().mkpath(data + u"/updates"_s);
    {
        ZipWriter zip(archive);
        zip.addTree(release, "Vantor Director.app");
    }
    const QString sums = writeSums(release, work + u"/release.sha256"_s);
    BenchWebsite::writeDocuments(
        data, {}, BenchWebsite::Release{u"2.5.0"_s, 2500, QFileInfo(archive).fileName()});
    const BenchWebsite::Site site(data, work);
    const QString authorityFile = work + u"/authority.pem"_s;
    {
        QFile website(site.authorityPath);
        website.open(QIODevice::ReadOnly);
        BenchWebsite::writeFile(authorityFile,
                                signing.authority.certificatePem() + website.readAll());
    }
    const auto network = site.makeNetworkAccess();
    DirectorReleaseChecker releaseCheck(*site.configuration.releaseMetadataURL, network);
    const std::optional<AvailableApplicationRelease> published =
        QCoro::waitFor(releaseCheck.latestRelease());
    if (!published || !published->downloadURL)
        qFatal("the sample website publishes no release");
    const QUrl url = *published->downloadURL;
    std::printf("Archive: %.1f MB at %s\n", double(QFileInfo(archive).size()) / (1 << 20),
                qPrintable(url.toString()));

    const QString installed = work + u"/Applications/Vantor Director.app"_s;
    QDir().mkpath(work + u"/Applications"_s);
    const auto workspace = std::make_shared<LinuxWorkspace>();
    ProductionApplicationUpdater updater(
        {network, workspace, std::make_shared<LibarchiveExtractor>(),
         std::make_shared<CmsCodeSignature>(QList<QByteArray>{signing.authority.certificatePem()},
                                            false),
         std::make_shared<RenameExchangeReplacement>()});

    const QString script = uR"(set -e
T="$WORK/shell-tmp"; rm -rf "$T"; mkdir -p "$T/x"
curl -sS --fail --cacert "$CA" -o "$T/director.zip" "$URL"
unzip -q "$T/director.zip" -d "$T/x"
rm "$T/director.zip"
S="$T/x/Vantor Director.app/Contents/_CodeSignature"
openssl cms -verify -binary -inform DER -in "$S/CodeSignature.p7s" -content "$S/CodeResources" \
  -CAfile "$CA" -purpose any -out /dev/null 2>/dev/null
(cd "$T/x/Vantor Director.app" && sha256sum --quiet -c "$SUMS")
mv "$INSTALLED" "$T/backup.app"
mv "$T/x/Vantor Director.app" "$INSTALLED"
rm -rf "$T"
)"_s;

    QList<double> ours, shell, shellFlushed, preparing, downtime;
    double ourPeak = 0;
    qint64 longestGap = 0;
    for (int run = 0; run < runs; ++run) {
        copyTree(pristine, installed);
        QProcess::execute(u"sync"_s, {});
        BenchBundles::resetPeakResident();
        QElapsedTimer sinceTick;
        QTimer ticker;
        ticker.setInterval(1);
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            longestGap = std::max(longestGap, sinceTick.nsecsElapsed());
            sinceTick.restart();
        });
        QElapsedTimer timer;
        timer.start();
        sinceTick.start();
        ticker.start();
        bool failed = false;
        // Named, so that the captures outlive the coroutine.
        const QUrl installedURL = QUrl::fromLocalFile(installed);
        const QStringList identifiers{identifier};
        const auto update = [&]() -> QCoro::Task<> {
            try {
                co_await updater.installUpdate(*published, installedURL, identifiers, {});
            } catch (const std::exception& error) {
                std::fprintf(stderr, "update failed: %s\n", error.what());
                failed = true;
            }
        };
        auto task = update();
        while (!task.isReady())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        ticker.stop();
        ours.append(timer.nsecsElapsed() / 1e9);
        // The replaced copy is deleted after the update returns: not during the shell's turn.
        ProductionApplicationUpdater::waitForBackupRemoval();
        ourPeak = std::max(ourPeak, BenchBundles::peakResidentMegabytes());
        if (failed)
            return 1;

        copyTree(pristine, installed);
        QProcess::execute(u"sync"_s, {});
        QProcess shellRun;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"WORK"_s, work);
        environment.insert(u"CA"_s, authorityFile);
        environment.insert(u"URL"_s, url.toString());
        environment.insert(u"SUMS"_s, sums);
        environment.insert(u"INSTALLED"_s, installed);
        shellRun.setProcessEnvironment(environment);
        shellRun.setProcessChannelMode(QProcess::ForwardedChannels);
        timer.restart();
        shellRun.start(u"sh"_s, {u"-c"_s, script});
        // The website answers from its own thread; waiting here is fine.
        shellRun.waitForFinished(-1);
        shell.append(timer.nsecsElapsed() / 1e9);
        if (shellRun.exitCode() != 0) {
            std::fprintf(stderr, "the shell pipeline failed\n");
            return 1;
        }
        // The updater flushes the new bundle to disk before the exchange; the shell does not.
        // Timing a sync after it shows what the same durability costs the shell.
        timer.restart();
        QProcess::execute(u"sync"_s, {});
        shellFlushed.append(shell.last() + timer.nsecsElapsed() / 1e9);

        // Director runs while its update is prepared; then it is closed politely, the prepared
        // release goes in, and the new version is started.
        copyTree(pristine, installed);
        QProcess::execute(u"sync"_s, {});
        const QString executable = installed + u"/Contents/MacOS/launcher-test-app"_s;
        const auto runningCopies = [&] { return workspace->runningApplications(identifier); };
        qint64 director = 0;
        if (!QProcess::startDetached(executable, {u"600"_s}, {}, &director) ||
            !waitUntil([&] { return !runningCopies().isEmpty(); }))
            qFatal("Director could not be started");
        timer.restart();
        std::optional<PreparedRelease> prepared;
        const auto prepare = [&]() -> QCoro::Task<> {
            try {
                PreparedRelease ready =
                    co_await updater.prepareUpdate(*published, installedURL, identifiers, {});
                prepared = std::move(ready);
            } catch (const std::exception& error) {
                std::fprintf(stderr, "preparing failed: %s\n", error.what());
            }
        };
        auto preparation = prepare();
        finish(preparation);
        preparing.append(timer.nsecsElapsed() / 1e9);
        if (!prepared)
            return 1;

        timer.restart();
        for (const RunningApplication& copy : runningCopies())
            workspace->terminate(copy);
        if (!waitUntil([&] { return runningCopies().isEmpty(); }))
            qFatal("Director did not close");
        const auto install = [&]() -> QCoro::Task<> {
            try {
                co_await updater.installPrepared(*prepared, installedURL, identifiers);
            } catch (const std::exception& error) {
                std::fprintf(stderr, "installing failed: %s\n", error.what());
                failed = true;
            }
        };
        auto installing = install();
        finish(installing);
        if (failed || !QProcess::startDetached(executable, {u"600"_s}, {}, &director) ||
            !waitUntil([&] { return !runningCopies().isEmpty(); }))
            return 1;
        downtime.append(timer.nsecsElapsed() / 1e9);
        ProductionApplicationUpdater::waitForBackupRemoval();
        for (const RunningApplication& copy : runningCopies())
            workspace->terminate(copy);
        waitUntil([&] { return runningCopies().isEmpty(); });

        std::printf("run %d: updater %.2f s, shell %.2f s, shell then sync %.2f s; prepared "
                    "while running %.2f s, downtime %.2f s\n",
                    run + 1, ours.last(), shell.last(), shellFlushed.last(), preparing.last(),
                    downtime.last());
    }

    std::printf("\n%lld MB release, median of %d runs\n", megabytes, runs);
    std::printf("updater: %.2f s   shell (curl, unzip, openssl cms, sha256sum, mv): %.2f s\n",
                median(ours), median(shell));
    std::printf("ratio updater/shell: %.2f (goal <= 0.75); against shell then sync: %.2f\n",
                median(ours) / median(shell), median(ours) / median(shellFlushed));
    std::printf("updater peak memory (whole process, website included): %.1f MB (goal < 100 MB)\n",
                ourPeak);
    std::printf("longest main-thread stall during the update: %.1f ms (goal < 50 ms)\n",
                longestGap / 1e6);
    std::printf("Director's downtime with a prepared release (close, install, reopen): %.2f s "
                "(goal <= 3 s); preparing while it ran took %.2f s\n",
                median(downtime), median(preparing));
    BenchBundles::printSummary(
        "updater", median(ours) / median(shell), "curl, unzip, openssl cms, sha256sum, mv",
        "<= 0.75, memory < 100 MB, stall < 50 ms, downtime <= 3 s", ourPeak,
        QString::asprintf("updater %.2f s, shell %.2f s, shell then sync %.2f s, longest stall "
                          "%.1f ms, downtime %.2f s, prepared while running in %.2f s (%lld MB, "
                          "median of %d)",
                          median(ours), median(shell), median(shellFlushed), longestGap / 1e6,
                          median(downtime), median(preparing), static_cast<long long>(megabytes),
                          runs)
            .toStdString());
    return 0;
}
