#include "platform/linux/BundleExecutable.h"

#include "platform/BundleMetadata.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

std::optional<QString> executableName(const QUrl& bundle) {
    const auto values = readInfoPlistStrings(bundle, {"CFBundleExecutable"});
    if (!values || !values->contains("CFBundleExecutable"))
        return std::nullopt;
    return values->value("CFBundleExecutable");
}

} // namespace

std::optional<QString> bundleExecutable(const QUrl& bundle) {
    if (!bundle.isLocalFile())
        return std::nullopt;
    const QString bundlePath = QDir::cleanPath(bundle.toLocalFile());
    const QString name = executableName(QUrl::fromLocalFile(bundlePath))
                             .value_or(QFileInfo(bundlePath).completeBaseName());
    // The name is one file in "Contents/MacOS/", never a path that leads elsewhere.
    if (name.isEmpty() || name.contains(u'/') || name == u".."_s)
        return std::nullopt;
    const QFileInfo executable(bundlePath + u"/Contents/MacOS/"_s + name);
    if (!executable.isFile() || !executable.isExecutable())
        return std::nullopt;
    return executable.filePath();
}
