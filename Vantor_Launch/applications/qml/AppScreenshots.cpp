#include "AppScreenshots.h"

#include <QDir>
#include <QImageReader>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace AppScreenshots {

QStringList candidates(const QString& name, const QUrl& applicationURL,
                       const QString& resourceRoot) {
    static const QRegularExpression plainName(u"^[A-Za-z0-9][A-Za-z0-9._-]*$"_s);
    if (!plainName.match(name).hasMatch())
        return {};
    QStringList files{resourceRoot + u"/Screenshots/"_s + name, resourceRoot + u'/' + name};
    if (applicationURL.isLocalFile() && !applicationURL.toLocalFile().isEmpty()) {
        const QString resources =
            QDir(applicationURL.toLocalFile()).filePath(u"Contents/Resources"_s);
        for (const QString& folder :
             {u"Remote/assets/"_s, u"Pellomar_Pellomar.bundle/Remote/assets/"_s,
              u"Pellomar_Pellomar.bundle/Contents/Resources/Remote/assets/"_s})
            files.append(resources + u'/' + folder + name);
    }
    return files;
}

QImage load(const QString& name, const QUrl& applicationURL, const QString& resourceRoot) {
    for (const QString& file : candidates(name, applicationURL, resourceRoot)) {
        QImageReader reader(file);
        // A screenshot inside an application is not ours: keep what it may cost bounded.
        const QSize size = reader.size();
        if (size.isValid() && qint64(size.width()) * size.height() > 40'000'000)
            continue;
        const QImage image = reader.read();
        if (!image.isNull())
            return image;
    }
    return {};
}

} // namespace AppScreenshots
