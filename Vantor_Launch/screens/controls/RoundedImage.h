#pragma once

#include <QImage>
#include <QQuickItem>
#include <QtQmlIntegration>

// An image clipped to a rounded rectangle, filling the item (cropped) or fitted into it. Until an
// image is set it draws the placeholder gradient when asked for one, otherwise nothing, so that
// the view can lay its own placeholder under it. Subclasses load the image. The picture is composed
// once per image and size and shown as a texture.
class RoundedImage : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Use ArtworkImage or ScreenshotImage")
    Q_PROPERTY(qreal radius READ radius WRITE setRadius NOTIFY radiusChanged)
    Q_PROPERTY(bool fills READ fills WRITE setFills NOTIFY fillsChanged)
    Q_PROPERTY(bool gradientPlaceholder READ gradientPlaceholder WRITE setGradientPlaceholder NOTIFY
                   gradientPlaceholderChanged)
    // An image is shown (false while loading, on failure and without a source).
    Q_PROPERTY(bool ready READ ready NOTIFY readyChanged)

public:
    explicit RoundedImage(QQuickItem* parent = nullptr);

    qreal radius() const { return m_radius; }
    void setRadius(qreal radius);
    bool fills() const { return m_fills; }
    void setFills(bool fills);
    bool gradientPlaceholder() const { return m_gradientPlaceholder; }
    void setGradientPlaceholder(bool gradient);
    bool ready() const { return !m_image.isNull(); }

Q_SIGNALS:
    void radiusChanged();
    void fillsChanged();
    void gradientPlaceholderChanged();
    void readyChanged();

protected:
    QSGNode* updatePaintNode(QSGNode* node, UpdatePaintNodeData*) override;
    void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;
    void setImage(const QImage& image);

private:
    // The item's picture at its size in device pixels: the image, or the placeholder gradient.
    QImage compose(const QSize& pixels, qreal ratio) const;

    QImage m_image;
    bool m_stale = true; // the texture no longer matches the image, size or style
    qreal m_radius = 0;
    bool m_fills = true;
    bool m_gradientPlaceholder = false;
};
