#include "RoundedImage.h"

#include "UiPalette.h"

#include <QPainter>
#include <QPainterPath>
#include <QQuickWindow>
#include <QSGImageNode>

RoundedImage::RoundedImage(QQuickItem* parent)
    : QQuickItem(parent) {
    setFlag(ItemHasContents);
}

void RoundedImage::setRadius(qreal radius) {
    if (qFuzzyCompare(m_radius, radius))
        return;
    m_radius = radius;
    m_stale = true;
    Q_EMIT radiusChanged();
    update();
}

void RoundedImage::setFills(bool fills) {
    if (m_fills == fills)
        return;
    m_fills = fills;
    m_stale = true;
    Q_EMIT fillsChanged();
    update();
}

void RoundedImage::setGradientPlaceholder(bool gradient) {
    if (m_gradientPlaceholder == gradient)
        return;
    m_gradientPlaceholder = gradient;
    m_stale = true;
    Q_EMIT gradientPlaceholderChanged();
    update();
}

void RoundedImage::setImage(const QImage& image) {
    const bool wasReady = ready();
    m_image = image;
    m_stale = true;
    if (wasReady != ready())
        Q_EMIT readyChanged();
    update();
}

void RoundedImage::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) {
    QQuickItem::geometryChange(newGeometry, oldGeometry);
    if (newGeometry.size() != oldGeometry.size()) {
        m_stale = true;
        update();
    }
}

QImage RoundedImage::compose(const QSize& pixels, qreal ratio) const {
    QImage picture(pixels, QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    picture.setDevicePixelRatio(ratio);
    const QRectF box(QPointF(0, 0), QSizeF(pixels) / ratio);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);

    if (m_image.isNull()) {
        if (m_gradientPlaceholder) {
            QLinearGradient gradient(box.topLeft(), box.bottomRight());
            QColor first = UiPalette::teal();
            first.setAlphaF(0.22f);
            QColor second = UiPalette::accentBlue();
            second.setAlphaF(0.10f);
            gradient.setColorAt(0, first);
            gradient.setColorAt(1, second);
            QPainterPath outline;
            outline.addRoundedRect(box, m_radius, m_radius);
            painter.fillPath(outline, gradient);
        }
        return picture;
    }

    const QSizeF target =
        QSizeF(m_image.size())
            .scaled(box.size(), m_fills ? Qt::KeepAspectRatioByExpanding : Qt::KeepAspectRatio);
    const QRectF drawn(box.center().x() - target.width() / 2,
                       box.center().y() - target.height() / 2, target.width(), target.height());
    QPainterPath shape;
    shape.addRoundedRect(drawn.intersected(box), m_radius, m_radius);
    painter.setClipPath(shape);
    painter.drawImage(drawn, m_image);
    return picture;
}

QSGNode* RoundedImage::updatePaintNode(QSGNode* node, UpdatePaintNodeData*) {
    auto* imageNode = static_cast<QSGImageNode*>(node);
    const qreal ratio = window() ? window()->effectiveDevicePixelRatio() : 1.0;
    const QSize pixels = (size() * ratio).toSize();
    if (pixels.isEmpty() || (m_image.isNull() && !m_gradientPlaceholder)) {
        delete imageNode;
        m_stale = true;
        return nullptr;
    }
    if (!imageNode) {
        imageNode = window()->createImageNode();
        imageNode->setOwnsTexture(true);
        m_stale = true;
    }
    if (m_stale) {
        imageNode->setTexture(window()->createTextureFromImage(compose(pixels, ratio)));
        imageNode->setFiltering(QSGTexture::Linear);
        m_stale = false;
    }
    imageNode->setRect(boundingRect());
    return imageNode;
}
