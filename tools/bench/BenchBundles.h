#pragma once

#include <QDir>
#include <QFile>
#include <QString>
#include <cstdio>
#include <string>
#include <sys/resource.h>

// Minimal application bundles, a CPU clock, the memory meter and the summary line of the
// benchmarks.
namespace BenchBundles {

inline void writeBundle(const QString& folder, const QString& name, const QString& identifier,
                        const QByteArray& script = "#!/bin/sh\nwhile :; do sleep 1; done\n") {
    const QString bundle = folder + QLatin1Char('/') + name;
    QDir().mkpath(bundle + QStringLiteral("/Contents/MacOS"));
    QFile plist(bundle + QStringLiteral("/Contents/Info.plist"));
    plist.open(QIODevice::WriteOnly);
    plist.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                "<plist version=\"1.0\"><dict>\n"
                "<key>CFBundleIdentifier</key><string>" +
                identifier.toUtf8() +
                "</string>\n"
                "<key>CFBundleShortVersionString</key><string>2.4.1</string>\n"
                "<key>CFBundleVersion</key><string>2410</string>\n"
                "<key>CFBundleExecutable</key><string>Launch</string>\n"
                "</dict></plist>\n");
    QFile executable(bundle + QStringLiteral("/Contents/MacOS/Launch"));
    executable.open(QIODevice::WriteOnly);
    executable.write(script);
    executable.setPermissions(executable.permissions() | QFileDevice::ExeOwner);
}

// User plus system CPU time of this process, in milliseconds.
inline double cpuMilliseconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

// User plus system CPU time of the children this process has waited for, in milliseconds.
inline double childrenCpuMilliseconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

// Peak resident memory of this process since it started or since the last reset, in MB.
inline double peakResidentMegabytes() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong() / 1024.0;
    }
    return -1;
}

inline void resetPeakResident() {
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly))
        clear.write("5");
}

// The line that tools/bench/run.sh gathers from every benchmark: what was measured against what
// the shell does, the goal, peak memory and the absolute times.
inline void printSummary(const char* name, double ratio, const std::string& baseline,
                         const std::string& goal, double peakMegabytes, const std::string& times) {
    std::printf("summary: %-13s ratio %.3g against %s (goal: %s); peak memory %.1f MB; %s\n", name,
                ratio, baseline.c_str(), goal.c_str(), peakMegabytes, times.c_str());
    std::fflush(stdout);
}

} // namespace BenchBundles
