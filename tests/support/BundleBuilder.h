#pragma once

#include <QMap>
#include <QString>
#include <QUrl>
#include <optional>

// Writes real application bundle folders for tests: "Contents/Info.plist" (XML or binary) and an
// executable shell script under "Contents/MacOS/".
struct BundleSpec {
    std::optional<QString> identifier;
    std::optional<QString> version;
    std::optional<QString> build;
    QString executable = QStringLiteral("launcher-test-app");
    bool binaryPropertyList = false;
    // The script's body; by default it sleeps until it is terminated.
    QString script = QStringLiteral("exec sleep 600\n");
};

// Writes (or replaces) a file with its folders; throws when it cannot.
void writeFile(const QString& path, const QByteArray& bytes);

// The whole file, or nothing when it cannot be read.
QByteArray readFile(const QString& path);

// Every file under a folder (hidden ones too) by its relative path, with its contents.
QMap<QString, QByteArray> filesUnder(const QString& folder);

// Creates (or replaces) the bundle at folder/name and returns its URL.
QUrl writeBundle(const QString& folder, const QString& name, const BundleSpec& spec);
