#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <optional>

// Real application bundles for tests: a folder with Contents/Info.plist and an executable in
// Contents/MacOS/.
struct TestBundle {
    enum class PropertyListFormat { xml, binary };

    std::optional<QString> identifier;
    std::optional<QString> version = QStringLiteral("2.4.1");
    std::optional<QString> build = QStringLiteral("2410");
    QString executableName = QStringLiteral("Launch");
    PropertyListFormat format = PropertyListFormat::xml;
    // A shell script that writes its arguments beside itself ("<executable>.arguments") and then
    // waits until it is terminated.
    QByteArray executable = waitingScript();

    static QByteArray waitingScript();
    // The contents of a real program (sleep), so that the process's executable is the bundle's.
    static QByteArray sleepProgram();

    // Writes the bundle as folder/name and returns its path.
    QString writeTo(const QString& folder, const QString& name) const;
};

inline QUrl bundleURL(const QString& path) {
    return QUrl::fromLocalFile(path);
}
