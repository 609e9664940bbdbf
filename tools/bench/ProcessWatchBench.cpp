// What the process watch costs while nothing changes, against a shell loop that runs pgrep as
// often as the watch polls, and how soon it reports a bundle process that starts or ends.
// Usage: process_watch_bench [seconds=10] [idle-processes=300]
#include "BenchBundles.h"
#include "platform/linux/LinuxWorkspace.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/ProcessWatch.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

void runEventLoop(int milliseconds) {
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

// CPU time this process spends per second of wall time, in percent.
double cpuPercent(int seconds) {
    const double before = BenchBundles::cpuMilliseconds();
    runEventLoop(seconds * 1000);
    return (BenchBundles::cpuMilliseconds() - before) / (seconds * 10.0);
}

// Milliseconds until the signal arrives after start() was called.
template <typename Signal>
double latency(Workspace& workspace, Signal signal, const std::function<void()>& start) {
    QEventLoop loop;
    QElapsedTimer timer;
    const auto connection = QObject::connect(&workspace, signal, &loop, &QEventLoop::quit);
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    timer.start();
    start();
    loop.exec();
    QObject::disconnect(connection);
    return timer.nsecsElapsed() / 1e6;
}

double median(QList<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void report(const char* what, QList<double> values) {
    std::sort(values.begin(), values.end());
    std::printf("%-36s median %7.1f ms  max %7.1f ms\n", what, values[values.size() / 2],
                values.last());
}

// CPU time per second of a shell that looks for bundle processes with pgrep at each poll of the
// watch (it would see an end only as late as a start).
double shellCpuMillisecondsPerSecond(int seconds) {
    const int polls = seconds * 1000 / ProcessWatch::pollInterval;
    const QString interval = QString::number(ProcessWatch::pollInterval / 1000.0);
    const double before = BenchBundles::childrenCpuMilliseconds();
    QProcess shell;
    shell.start(u"sh"_s, {u"-c"_s,
                          u"i=0; while [ $i -lt $0 ]; do pgrep -f /Contents/MacOS/ >/dev/null; "
                          u"sleep $1; i=$((i+1)); done"_s,
                          QString::number(polls), interval});
    if (!shell.waitForFinished(seconds * 2000 + 10000) || shell.exitCode() != 0)
        qFatal("the pgrep loop failed");
    return (BenchBundles::childrenCpuMilliseconds() - before) / seconds;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 10;
    const int idleProcesses = argc > 2 ? std::atoi(argv[2]) : 300;

    // A desktop's worth of processes that the poll has to walk past. Detached, so that this
    // process's event loop does not watch their pipes.
    QList<qint64> idle;
    for (int i = 0; i < idleProcesses; ++i) {
        qint64 processId = 0;
        if (QProcess::startDetached(u"sleep"_s, {u"600"_s}, {}, &processId))
            idle.append(processId);
    }
    std::printf("%lld processes visible in /proc\n",
                static_cast<long long>(ProcessTable::processIds().size()));

    // The two kinds of poll, timed alone: a quiet one (no new process id since the last) reads
    // one line; a busy one lists /proc.
    const auto microseconds = [](int repetitions, const std::function<void()>& work) {
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < repetitions; ++i)
            work();
        return timer.nsecsElapsed() / 1e3 / repetitions;
    };
    std::printf("one quiet poll (last process id unchanged): %.1f us\n",
                microseconds(2000, [] { ProcessTable::lastCreatedProcessId(); }));
    std::printf("one busy poll (listing /proc):              %.1f us\n",
                microseconds(200, [] { ProcessTable::processIds(); }));

    LinuxWorkspace workspace;
    const double baseline = cpuPercent(seconds);
    QObject listener;
    QObject::connect(&workspace, &Workspace::applicationLaunched, &listener, [] {});
    QObject::connect(&workspace, &Workspace::applicationTerminated, &listener, [] {});
    const double watching = cpuPercent(seconds);
    const double watchCost = std::max(0.0, (watching - baseline) * 10.0);
    std::printf("idle CPU over %d s: %.4f %% without the watch, %.4f %% with it "
                "(%.3f ms of CPU per second)\n",
                seconds, baseline, watching, watchCost);
    const double shellCost = shellCpuMillisecondsPerSecond(seconds);
    std::printf("shell polling with pgrep over %d s: %.3f ms of CPU per second\n", seconds,
                shellCost);

    QTemporaryDir root;
    BenchBundles::writeBundle(root.path(), u"Vantor Director.app"_s,
                              u"nz.co.halvex.VantorDirector"_s);
    const QString executable = root.filePath(u"Vantor Director.app/Contents/MacOS/Launch"_s);
    QList<double> launches;
    QList<double> terminations;
    for (int i = 0; i < 10; ++i) {
        QProcess process;
        launches.append(latency(workspace, &Workspace::applicationLaunched,
                                [&] { process.start(executable); }));
        terminations.append(
            latency(workspace, &Workspace::applicationTerminated, [&] { process.terminate(); }));
        process.waitForFinished();
    }
    report("launch reported after", launches);
    report("termination reported after", terminations);

    for (const qint64 processId : idle)
        ::kill(pid_t(processId), SIGKILL);
    BenchBundles::printSummary(
        "process_watch", watchCost / shellCost, "a pgrep loop, idle CPU",
        "negligible CPU; launch <= 2 s, end <= 0.5 s", BenchBundles::peakResidentMegabytes(),
        QString::asprintf("watch %.3f ms CPU/s, shell %.3f ms CPU/s; launch seen after %.0f ms "
                          "(max %.0f), end after %.1f ms (max %.1f)",
                          watchCost, shellCost, median(launches),
                          *std::max_element(launches.begin(), launches.end()), median(terminations),
                          *std::max_element(terminations.begin(), terminations.end()))
            .toStdString());
    return 0;
}
