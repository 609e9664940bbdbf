#pragma once

#include <QDir>
#include <QFile>
#include <QString>
#include <sys/resource.h>

// Minimal application bundles and a CPU clock for the benchmarks.
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

} // namespace BenchBundles
