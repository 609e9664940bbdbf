#include "platform/linux/BundleExecutable.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cstdlib>
#include <memory>
#include <plist/plist.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 maximumPropertyListSize = 8 * 1024 * 1024;

std::optional<QString> executableName(const QString& bundlePath) {
    QFile file(bundlePath + u"/Contents/Info.plist"_s);
    if (!file.open(QIODevice::ReadOnly) || file.size() > maximumPropertyListSize)
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    plist_t root = nullptr;
    plist_from_memory(bytes.constData(), uint32_t(bytes.size()), &root);
    const std::unique_ptr<void, decltype(&plist_free)> owner(root, &plist_free);
    if (!root || plist_get_node_type(root) != PLIST_DICT)
        return std::nullopt;
    plist_t node = plist_dict_get_item(root, "CFBundleExecutable");
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    char* text = nullptr;
    plist_get_string_val(node, &text);
    if (!text)
        return std::nullopt;
    QString name = QString::fromUtf8(text);
    std::free(text);
    return name;
}

} // namespace

std::optional<QString> bundleExecutable(const QUrl& bundle) {
    if (!bundle.isLocalFile())
        return std::nullopt;
    const QString bundlePath = QDir::cleanPath(bundle.toLocalFile());
    const QString name =
        executableName(bundlePath).value_or(QFileInfo(bundlePath).completeBaseName());
    // The name is one file in "Contents/MacOS/", never a path that leads elsewhere.
    if (name.isEmpty() || name.contains(u'/') || name == u".."_s)
        return std::nullopt;
    const QFileInfo executable(bundlePath + u"/Contents/MacOS/"_s + name);
    if (!executable.isFile() || !executable.isExecutable())
        return std::nullopt;
    return executable.filePath();
}
