#include "platform/BundleMetadata.h"

#include "platform/BoundedPropertyList.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

// Info.plist files are a few kilobytes; anything far larger is not one.
constexpr qint64 maximumPropertyListSize = 8 * 1024 * 1024;

// A string value read with its length: libplist's copying reader aborts the whole process on a
// string that holds a NUL character, which any Info.plist on the disk may do. Such a value, like
// any that is not valid text, counts as unreadable.
std::optional<QString> stringValue(plist_t dictionary, const char* key) {
    plist_t node = plist_dict_get_item(dictionary, key);
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    if (!text || length > uint64_t(maximumPropertyListSize) || std::memchr(text, 0, length))
        return std::nullopt;
    QString value = QString::fromUtf8(text, qsizetype(length));
    if (value.contains(QChar::ReplacementCharacter))
        return std::nullopt;
    return value;
}

// macOS reads an XML property list behind a UTF-8 byte-order mark, or written in UTF-16, and
// libplist reads neither: both become plain UTF-8 here. Anything else, binary lists among them,
// passes unchanged.
QByteArray asParsableUtf8(const QByteArray& bytes) {
    if (bytes.startsWith("\xEF\xBB\xBF"))
        return bytes.sliced(3);
    std::optional<QStringConverter::Encoding> encoding;
    if (bytes.startsWith("\xFF\xFE") || bytes.startsWith(QByteArrayView("<\0", 2)))
        encoding = QStringConverter::Utf16LE;
    else if (bytes.startsWith("\xFE\xFF") || bytes.startsWith(QByteArrayView("\0<", 2)))
        encoding = QStringConverter::Utf16BE;
    if (!encoding)
        return bytes;
    // The decoder drops the byte-order mark.
    QStringDecoder decoder(*encoding);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return bytes;
    return text.toUtf8();
}

} // namespace

std::optional<QHash<QByteArray, QString>>
infoPlistStrings(const QByteArray& document, std::initializer_list<const char*> keys) {
    if (document.size() > maximumPropertyListSize)
        return std::nullopt;
    const QByteArray bytes = asParsableUtf8(document);
    if (bytes.isEmpty() || bytes.size() > maximumPropertyListSize)
        return std::nullopt;

    const auto root = BoundedPropertyList::parse(bytes, BoundedPropertyList::Formats::xmlOrBinary);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT)
        return std::nullopt;

    QHash<QByteArray, QString> values;
    for (const char* key : keys) {
        if (auto value = stringValue(root.get(), key))
            values.insert(key, *value);
    }
    return values;
}

std::optional<QHash<QByteArray, QString>>
readInfoPlistStrings(const QUrl& bundle, std::initializer_list<const char*> keys) {
    QFile file(bundle.toLocalFile() + u"/Contents/Info.plist"_s);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // Read no more than the limit allows, whatever size the file claims.
    const QByteArray bytes = file.read(maximumPropertyListSize + 1);
    return infoPlistStrings(bytes, keys);
}

std::optional<ApplicationBundleMetadata> readBundleMetadata(const QUrl& bundle) {
    const auto values = readInfoPlistStrings(
        bundle, {"CFBundleIdentifier", "CFBundleShortVersionString", "CFBundleVersion"});
    if (!values)
        return std::nullopt;
    const auto value = [&](const char* key) {
        const auto it = values->constFind(key);
        return it == values->constEnd() ? std::nullopt : std::optional<QString>(*it);
    };
    return ApplicationBundleMetadata{value("CFBundleIdentifier"),
                                     value("CFBundleShortVersionString"), value("CFBundleVersion")};
}

QString bundleIdentity(const QUrl& bundle) {
    const QString clean = QDir::cleanPath(bundle.toLocalFile());
    const QString resolved = QFileInfo(clean).canonicalFilePath();
    return resolved.isEmpty() ? clean : resolved;
}
