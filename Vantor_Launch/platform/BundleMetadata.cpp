#include "platform/BundleMetadata.h"

#include <QFile>
#include <cstdlib>
#include <memory>
#include <plist/plist.h>

using namespace Qt::StringLiterals;

namespace {

// Info.plist files are a few kilobytes; anything far larger is not one.
constexpr qint64 maximumPropertyListSize = 8 * 1024 * 1024;

std::optional<QString> stringValue(plist_t dictionary, const char* key) {
    plist_t node = plist_dict_get_item(dictionary, key);
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    char* text = nullptr;
    plist_get_string_val(node, &text);
    if (!text)
        return std::nullopt;
    QString value = QString::fromUtf8(text);
    std::free(text);
    return value;
}

} // namespace

std::optional<QHash<QByteArray, QString>>
readInfoPlistStrings(const QUrl& bundle, std::initializer_list<const char*> keys) {
    QFile file(bundle.toLocalFile() + u"/Contents/Info.plist"_s);
    if (!file.open(QIODevice::ReadOnly) || file.size() > maximumPropertyListSize)
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (bytes.isEmpty())
        return std::nullopt;

    plist_t root = nullptr;
    plist_from_memory(bytes.constData(), uint32_t(bytes.size()), &root);
    const std::unique_ptr<void, decltype(&plist_free)> owner(root, &plist_free);
    if (!root || plist_get_node_type(root) != PLIST_DICT)
        return std::nullopt;

    QHash<QByteArray, QString> values;
    for (const char* key : keys) {
        if (auto value = stringValue(root, key))
            values.insert(key, *value);
    }
    return values;
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
