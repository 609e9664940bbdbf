#include "applications/PreparedReleaseRecord.h"

#include <QByteArrayView>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <climits>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr QByteArrayView header = "vantor-launch prepared release 1\n";
constexpr qsizetype fingerprintLength = 64; // SHA-256 in lower-case hexadecimal

bool isSingleName(const QString& name) {
    return !name.isEmpty() && QFile::encodeName(name).size() <= NAME_MAX && name != u"." &&
           name != u".." && !name.contains(u'/') && !name.contains(QChar(u'\0'));
}

bool isLowerHex(const QByteArray& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

QByteArray encoded(const QString& text) {
    return text.toUtf8().toPercentEncoding();
}

// Sorted, so that the same tree always gives the same fingerprint whatever order the folder
// lists its entries in.
bool addTree(QCryptographicHash& digest, const QByteArray& path, const QByteArray& relative) {
    struct stat status {};
    if (::lstat(path.constData(), &status) != 0)
        return false;
    QByteArray line = relative;
    line += '\0';
    for (const qint64 value :
         {qint64(status.st_mode), qint64(status.st_ino), qint64(status.st_size),
          qint64(status.st_mtim.tv_sec), qint64(status.st_mtim.tv_nsec),
          qint64(status.st_ctim.tv_sec), qint64(status.st_ctim.tv_nsec)}) {
        line += QByteArray::number(value);
        line += ' ';
    }
    if (S_ISLNK(status.st_mode)) {
        QByteArray target(PATH_MAX, Qt::Uninitialized);
        const ssize_t length = ::readlink(path.constData(), target.data(), size_t(target.size()));
        if (length < 0)
            return false;
        line += target.left(length);
    }
    line += '\0';
    digest.addData(line);
    if (!S_ISDIR(status.st_mode))
        return true;
    const QStringList names =
        QDir(QFile::decodeName(path))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                       QDir::Name);
    for (const QString& name : names) {
        const QByteArray child = QFile::encodeName(name);
        if (!addTree(digest, path + '/' + child, relative + '/' + child))
            return false;
    }
    return true;
}

} // namespace

std::optional<PreparedReleaseRecord> PreparedReleaseRecord::parse(const QByteArray& bytes) {
    if (bytes.size() > maximumBytes || !bytes.startsWith(header))
        return std::nullopt;
    const QList<QByteArray> lines = bytes.sliced(header.size()).split('\n');
    if (lines.size() != 6 || !lines[5].isEmpty())
        return std::nullopt;
    PreparedReleaseRecord record;
    record.release.version = QString::fromUtf8(QByteArray::fromPercentEncoding(lines[0]));
    if (lines[1].startsWith('='))
        record.release.build = QString::fromUtf8(QByteArray::fromPercentEncoding(lines[1].mid(1)));
    else if (lines[1] != "-")
        return std::nullopt;
    const QUrl url = QUrl::fromEncoded(QByteArray::fromPercentEncoding(lines[2]), QUrl::StrictMode);
    if (!url.isValid() || url.scheme().compare(u"https", Qt::CaseInsensitive) != 0)
        return std::nullopt;
    record.release.downloadURL = url;
    record.bundleName = QString::fromUtf8(QByteArray::fromPercentEncoding(lines[3]));
    record.fingerprint = lines[4];
    // Written one way only: anything else did not come from here.
    if (record.release.version.isEmpty() || !isSingleName(record.bundleName) ||
        record.fingerprint.size() != fingerprintLength || !isLowerHex(record.fingerprint) ||
        record.serialize() != bytes)
        return std::nullopt;
    return record;
}

QByteArray PreparedReleaseRecord::serialize() const {
    QByteArray bytes = header.toByteArray();
    bytes += encoded(release.version) + '\n';
    bytes += (release.build ? '=' + encoded(*release.build) : QByteArray("-")) + '\n';
    bytes += (release.downloadURL ? release.downloadURL->toEncoded().toPercentEncoding()
                                  : QByteArray()) +
             '\n';
    bytes += encoded(bundleName) + '\n';
    bytes += fingerprint + '\n';
    return bytes;
}

QByteArray PreparedReleaseRecord::fingerprintOf(const QString& bundle) {
    QCryptographicHash digest(QCryptographicHash::Sha256);
    if (!addTree(digest, QFile::encodeName(bundle), "."))
        return {};
    return digest.result().toHex();
}
