#include "ArtworkImage.h"

#include "ArtworkCache.h"

ArtworkImage::ArtworkImage(QQuickItem* parent)
    : RoundedImage(parent) {
    setGradientPlaceholder(true);
    connect(&ArtworkCache::shared(), &ArtworkCache::finished, this,
            [this](const QUrl& url, const QImage& image) {
                if (url == m_source)
                    setImage(image);
            });
}

void ArtworkImage::setSource(const QUrl& source) {
    if (m_source == source)
        return;
    m_source = source;
    Q_EMIT sourceChanged();
    setImage(source.isEmpty() ? QImage() : ArtworkCache::shared().image(source).value_or(QImage()));
}
