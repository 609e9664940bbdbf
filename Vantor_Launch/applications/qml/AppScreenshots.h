#pragma once

#include <QImage>
#include <QStringList>
#include <QUrl>

// Where a screenshot of the detail screen comes from: the launcher's own resources first, then,
// when the application is installed, the places inside its bundle where Vantor Director keeps its
// remote assets (directly, or inside its embedded resource bundle in either of two layouts).
namespace AppScreenshots {

inline constexpr auto launcherResources = ":/Vantor/Launch";

// The files to try, in order. A name that is not a plain file name gives none.
QStringList candidates(const QString& name, const QUrl& applicationURL,
                       const QString& resourceRoot = QString::fromLatin1(launcherResources));
// The first candidate that decodes as an image, or a null image.
QImage load(const QString& name, const QUrl& applicationURL,
            const QString& resourceRoot = QString::fromLatin1(launcherResources));

} // namespace AppScreenshots
