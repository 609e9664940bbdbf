#include "SymbolIcon.h"

#include "SymbolRenderer.h"
#include "SymbolTable.h"

#include <QPainter>
#include <QQuickWindow>

using namespace Qt::StringLiterals;

SymbolIcon::SymbolIcon(QQuickItem* parent)
    : QQuickPaintedItem(parent) {
    setImplicitSize(16, 16);
    setAntialiasing(true);
}

void SymbolIcon::setName(const QString& name) {
    if (m_name == name)
        return;
    m_name = name;
    Q_EMIT nameChanged();
    update();
}

void SymbolIcon::setColor(const QColor& color) {
    if (m_color == color)
        return;
    m_color = color;
    Q_EMIT colorChanged();
    update();
}

void SymbolIcon::setAlignment(Qt::Alignment alignment) {
    if (m_alignment == alignment)
        return;
    m_alignment = alignment;
    Q_EMIT alignmentChanged();
    update();
}

bool SymbolIcon::resolved() const {
    return !SymbolTable::resourcePath(m_name).isEmpty();
}

void SymbolIcon::paint(QPainter* painter) {
    const qreal ratio = window() ? window()->effectiveDevicePixelRatio() : 1.0;
    const QSize pixels = (size() * ratio).toSize();
    const QString key = m_name + u'|' + m_color.name(QColor::HexArgb) + u'|' +
                        QString::number(pixels.width()) + u'x' + QString::number(pixels.height());
    if (key != m_cacheKey) {
        m_cache = SymbolRenderer::render(m_name, pixels, m_color);
        m_cache.setDevicePixelRatio(ratio);
        m_cacheKey = key;
    }
    if (m_cache.isNull())
        return;
    const QSizeF drawn = m_cache.deviceIndependentSize();
    const QRectF box = boundingRect();
    qreal x = box.left() + (box.width() - drawn.width()) / 2;
    if (m_alignment & Qt::AlignLeft)
        x = box.left();
    else if (m_alignment & Qt::AlignRight)
        x = box.right() - drawn.width();
    const qreal y = box.top() + (box.height() - drawn.height()) / 2;
    painter->drawImage(QPointF(x, y), m_cache);
}
