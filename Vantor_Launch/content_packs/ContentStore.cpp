#include "content_packs/ContentStore.h"

#include "foundation/FileSafety.h"
#include "foundation/LaunchError.h"
#include "foundation/WorkFolder.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QStandardPaths>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString storeSubpath = u"Vantor Director/Creator Backgrounds"_s;
const QString manifestName = u"catalog.json"_s;

// The launcher's writers of the manifest take turns; Vantor Creator is not covered by this.
QMutex& manifestLock() {
    static QMutex lock;
    return lock;
}

QString fallbackFolder() {
    QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        base = QDir::tempPath();
    return QDir(base).filePath(storeSubpath);
}

bool copyTree(const QString& from, const QString& to) {
    if (!QFileInfo(from).isDir())
        return true;
    if (!QDir().mkpath(to))
        return false;
    QDirIterator files(from, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::NoSymLinks,
                       QDirIterator::Subdirectories);
    const QDir source(from);
    while (files.hasNext()) {
        const QFileInfo item(files.next());
        const QString relative = source.relativeFilePath(item.filePath());
        // Hidden files, and everything inside hidden folders, stay behind.
        if (relative.startsWith(u'.') || relative.contains(u"/."_s))
            continue;
        const QString target = QDir(to).filePath(relative);
        if (item.isDir()) {
            if (!QDir().mkpath(target))
                return false;
        } else if (!QFileInfo::exists(target)) {
            if (!QDir().mkpath(QFileInfo(target).path()) || !QFile::copy(item.filePath(), target))
                return false;
        }
    }
    return true;
}

} // namespace

ContentStore::Location ContentStore::locate() {
    Location location;
    location.fallback = fallbackFolder();
    const QDir containers(QDir(QDir::homePath()).filePath(u"Library/Containers"_s));
    for (const QString& identifier :
         {u"nz.co.halvex.VantorDirector"_s, u"nz.co.halvex.Pellomar"_s}) {
        if (QFileInfo(containers.filePath(identifier)).isDir()) {
            location.folder = containers.filePath(identifier) +
                              u"/Data/Library/Application Support/"_s + storeSubpath;
            location.inContainer = true;
            return location;
        }
    }
    location.folder = location.fallback;
    return location;
}

QString ContentStore::fileNameFor(const QString& text) {
    QString name;
    name.reserve(text.size());
    for (const char32_t character : text.toUcs4()) {
        if (QChar::isLetterOrNumber(character) || character == U'.' || character == U'-')
            name.append(QChar::fromUcs4(character));
        else
            name.append(u'_');
    }
    return name;
}

bool ContentStore::isSafeComponent(const QString& name) {
    return !name.isEmpty() && name != u"."_s && name != u".."_s && !name.contains(u'/') &&
           !name.contains(u'\\') && !name.contains(QChar(0));
}

std::optional<QList<InstalledAsset>> ContentStore::readEntries(const QString& folder) {
    QFile file(QDir(folder).filePath(manifestName));
    // Thousands of entries fit in a few megabytes; a larger file is not a manifest.
    constexpr qint64 maximumManifestBytes = 64 * 1024 * 1024;
    if (!file.open(QIODevice::ReadOnly) || file.size() > maximumManifestBytes)
        return std::nullopt;
    try {
        return InstalledAsset::decodeCatalog(file.readAll());
    } catch (const LaunchError&) {
        return std::nullopt;
    }
}

void ContentStore::writeEntries(const QString& folder, QList<InstalledAsset> entries) {
    // Plain code-point order: UTF-8 bytes compare the way code points do.
    QList<std::pair<QByteArray, InstalledAsset>> keyed;
    keyed.reserve(entries.size());
    for (InstalledAsset& entry : entries)
        keyed.append({entry.name.toUtf8(), std::move(entry)});
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    entries.clear();
    for (auto& [key, entry] : keyed)
        entries.append(std::move(entry));

    if (!QDir().mkpath(folder))
        throw LaunchError::file(QCoreApplication::translate(
            "ContentStore", "The content store folder could not be created."));
    FileSafety::writeAtomically(QDir(folder).filePath(manifestName),
                                InstalledAsset::encodeCatalog(entries));
}

QList<InstalledAsset> ContentStore::replacePackEntries(const QString& folder, const QString& packID,
                                                       const QList<InstalledAsset>& entries) {
    const QMutexLocker locked(&manifestLock());
    const QString manifest = QDir(folder).filePath(manifestName);
    std::optional<QList<InstalledAsset>> current = readEntries(folder);
    if (!current && QFileInfo::exists(manifest)) {
        // Whatever it holds may still be the user's; a new manifest must not erase it.
        const QString aside = manifest + u".unreadable-"_s +
                              QDateTime::currentDateTimeUtc().toString(u"yyyyMMdd-HHmmss"_s);
        if (!QFile::rename(manifest, aside))
            throw LaunchError::file(
                QCoreApplication::translate(
                    "ContentStore",
                    "The unreadable Content Pack manifest %1 could not be kept aside.")
                    .arg(manifest));
    }
    QList<InstalledAsset> kept = current.value_or(QList<InstalledAsset>());
    QList<InstalledAsset> replaced;
    for (const InstalledAsset& entry : std::as_const(kept)) {
        if (entry.contentPackID == packID)
            replaced.append(entry);
    }
    kept.removeIf([&](const InstalledAsset& entry) { return entry.contentPackID == packID; });
    kept.append(entries);
    writeEntries(folder, std::move(kept));
    return replaced;
}

void ContentStore::removeLeftovers(const QString& folder) {
    // Under the manifest's lock: a manifest being written is a work item of this process.
    const QMutexLocker locked(&manifestLock());
    WorkFolder::removeLeftovers(folder);
}

QHash<QString, QString> ContentStore::installedPackVersions() {
    const Location location = locate();
    moveLegacyContent(location);

    QHash<QString, QString> versions;
    const auto entries = readEntries(location.folder);
    if (!entries)
        return versions;
    for (const InstalledAsset& entry : *entries) {
        if (!entry.contentPackID || !entry.installedContentPackVersion ||
            !entry.localProtectedAssetURL || !entry.localProtectedAssetURL->isLocalFile())
            continue;
        if (QFileInfo::exists(entry.localProtectedAssetURL->toLocalFile()))
            versions.insert(*entry.contentPackID, entry.installedContentPackVersion->value);
    }
    return versions;
}

bool ContentStore::moveLegacyContent(const Location& location) {
    if (!location.inContainer ||
        QDir::cleanPath(location.folder) == QDir::cleanPath(location.fallback) ||
        !QFileInfo::exists(QDir(location.fallback).filePath(manifestName)))
        return true;

    const QMutexLocker locked(&manifestLock());
    const auto legacy = readEntries(location.fallback);
    if (!legacy)
        return false;
    if (!copyTree(QDir(location.fallback).filePath(u"Packs"_s),
                  QDir(location.folder).filePath(u"Packs"_s)))
        return false;

    QList<InstalledAsset> moved = *legacy;
    for (InstalledAsset& entry : moved) {
        entry.localThumbnailURL =
            rebase(entry.localThumbnailURL, location.fallback, location.folder);
        entry.localPreviewVideoURL =
            rebase(entry.localPreviewVideoURL, location.fallback, location.folder);
        entry.localProtectedAssetURL =
            rebase(entry.localProtectedAssetURL, location.fallback, location.folder);
    }
    QList<InstalledAsset> merged = readEntries(location.folder).value_or(QList<InstalledAsset>());
    merged.removeIf([&](const InstalledAsset& entry) {
        return std::any_of(moved.begin(), moved.end(), [&](const InstalledAsset& legacyEntry) {
            return legacyEntry.id == entry.id;
        });
    });
    merged.append(moved);
    try {
        writeEntries(location.folder, std::move(merged));
    } catch (const LaunchError&) {
        return false;
    }
    return true;
}

std::optional<QUrl> ContentStore::rebase(const std::optional<QUrl>& url, const QString& from,
                                         const QString& to) {
    if (!url || !url->isLocalFile())
        return url;
    const QString path = url->toLocalFile();
    const QString prefix = QDir::cleanPath(from) + u'/';
    if (!path.startsWith(prefix))
        return url;
    return QUrl::fromLocalFile(QDir::cleanPath(to) + u'/' + path.mid(prefix.size()));
}
