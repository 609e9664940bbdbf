#include "ScreenshotImage.h"

#include "AppScreenshots.h"

#include <QtConcurrent>

ScreenshotImage::ScreenshotImage(QQuickItem* parent)
    : RoundedImage(parent) {
    setFills(false);
    connect(&m_loading, &QFutureWatcher<QImage>::finished, this,
            [this] { setImage(m_loading.result()); });
}

ScreenshotImage::~ScreenshotImage() {
    m_loading.disconnect(this);
    m_loading.waitForFinished();
}

void ScreenshotImage::setFilename(const QString& filename) {
    if (m_filename == filename)
        return;
    m_filename = filename;
    Q_EMIT filenameChanged();
    reload();
}

void ScreenshotImage::setApplicationPath(const QString& path) {
    if (m_applicationPath == path)
        return;
    m_applicationPath = path;
    Q_EMIT applicationPathChanged();
    reload();
}

void ScreenshotImage::componentComplete() {
    RoundedImage::componentComplete();
    reload();
}

void ScreenshotImage::reload() {
    if (!isComponentComplete())
        return;
    setImage({});
    if (m_filename.isEmpty())
        return;
    const QUrl application =
        m_applicationPath.isEmpty() ? QUrl() : QUrl::fromLocalFile(m_applicationPath);
    m_loading.setFuture(QtConcurrent::run(
        [name = m_filename, application] { return AppScreenshots::load(name, application); }));
}
