#pragma once

#include <QString>
#include <QUrl>
#include <optional>

// The program that starts a bundle: "Contents/MacOS/" followed by the Info.plist's
// "CFBundleExecutable", or by the bundle's name without its extension when the key is missing.
// None when that file is not an executable.
std::optional<QString> bundleExecutable(const QUrl& bundle);
