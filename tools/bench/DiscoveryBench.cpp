// How long discovery takes with many bundles in one folder, and how long it keeps the main
// thread from its event loop; against grep reading the same keys from every Info.plist in a
// shell, in the same run. Usage: discovery_bench [bundles=1000] [runs=20]
#include "BenchBundles.h"
#include "applications/ProductionApplicationDiscovery.h"
#include "platform/linux/LinuxWorkspace.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    const int bundles = argc > 1 ? std::atoi(argv[1]) : 1000;
    const int runs = argc > 2 ? std::atoi(argv[2]) : 20;

    QTemporaryDir root;
    const QString system = root.filePath(u"Applications"_s);
    const QString home = root.filePath(u"home"_s);
    QDir().mkpath(home + u"/Applications"_s);
    for (int i = 0; i < bundles; ++i)
        BenchBundles::writeBundle(system, u"App %1.app"_s.arg(i, 4, 10, QLatin1Char('0')),
                                  u"com.example.App%1"_s.arg(i));
    BenchBundles::writeBundle(system, u"Vantor Director.app"_s, u"nz.co.halvex.VantorDirector"_s);

    const LaunchConfiguration configuration = LaunchConfiguration::production();
    ProductionApplicationDiscovery discovery(configuration, std::make_shared<LinuxWorkspace>(),
                                             {system, home});

    // The longest time the event loop went without turning while discovery ran.
    QElapsedTimer sinceTick;
    qint64 longestGap = 0;
    QTimer ticker;
    ticker.setInterval(1);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        longestGap = std::max(longestGap, sinceTick.nsecsElapsed());
        sinceTick.restart();
    });

    // The shell's version: every bundle's identifier and versions, with the process it takes.
    QList<double> shell;
    for (int run = 0; run <= runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        QProcess grep;
        grep.start(u"sh"_s, {u"-c"_s,
                             u"grep -h -A1 -e CFBundleIdentifier -e CFBundleShortVersionString "
                             u"-e CFBundleVersion \"$0\"/*.app/Contents/Info.plist >/dev/null"_s,
                             system});
        if (!grep.waitForFinished() || grep.exitCode() != 0)
            qFatal("grep over the bundles failed");
        if (run > 0)
            shell.append(timer.nsecsElapsed() / 1e6);
    }

    QList<double> wall;
    QList<double> gaps;
    QList<double> synchronous;
    for (int run = 0; run <= runs; ++run) {
        ticker.start();
        sinceTick.start();
        longestGap = 0;
        QElapsedTimer timer;
        timer.start();
        auto task = discovery.discoverApplications();
        const double untilFirstWait = timer.nsecsElapsed() / 1e6;
        while (!task.isReady())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        const double total = timer.nsecsElapsed() / 1e6;
        ticker.stop();
        if (run == 0)
            continue; // warm-up
        wall.append(total);
        synchronous.append(untilFirstWait);
        gaps.append(longestGap / 1e6);
    }

    const auto median = [](QList<double> values) {
        std::sort(values.begin(), values.end());
        return values[values.size() / 2];
    };
    const auto report = [](const char* what, QList<double> values) {
        std::sort(values.begin(), values.end());
        double sum = 0;
        for (double value : values)
            sum += value;
        std::printf("%-40s mean %8.2f ms  median %8.2f ms  min %8.2f ms  max %8.2f ms\n", what,
                    sum / values.size(), values[values.size() / 2], values.first(), values.last());
    };
    std::printf("discovery over %d bundles in one folder, %d runs (warm cache)\n", bundles + 1,
                runs);
    report("whole discovery (wall)", wall);
    report("main thread before the worker", synchronous);
    report("longest event-loop gap during it", gaps);
    report("shell: grep over every Info.plist", shell);
    // Discovery has no time goal: what matters is that it leaves the main thread free.
    BenchBundles::printSummary(
        "discovery", median(wall) / median(shell), "grep over every Info.plist",
        QString::asprintf("none set; main thread busy %.2f ms, longest gap %.1f ms",
                          median(synchronous), median(gaps))
            .toStdString(),
        BenchBundles::peakResidentMegabytes(),
        QString::asprintf("discovery %.1f ms, shell %.1f ms (%d bundles, median of %d)",
                          median(wall), median(shell), bundles + 1, runs)
            .toStdString());
    return 0;
}
