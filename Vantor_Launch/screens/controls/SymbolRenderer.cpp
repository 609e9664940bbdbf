#include "SymbolRenderer.h"

#include "SymbolTable.h"

#include <QPainter>
#include <QSvgRenderer>

namespace {

// Red marks the cut-outs: in premultiplied pixels the red channel is the cut-out's coverage, so
// subtracting it from the alpha keeps anti-aliased edges exact.
void tintAndCut(QImage& image, const QColor& color) {
    const QRgb tint = color.rgba();
    for (int y = 0; y < image.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const int coverage = std::max(0, qAlpha(line[x]) - qRed(line[x]));
            const int alpha = coverage * qAlpha(tint) / 255;
            line[x] = qPremultiply(qRgba(qRed(tint), qGreen(tint), qBlue(tint), alpha));
        }
    }
}

} // namespace

namespace SymbolRenderer {

qreal aspectRatio(const QString& name) {
    const QString path = SymbolTable::resourcePath(name);
    if (path.isEmpty())
        return 1;
    const QSvgRenderer renderer(path);
    const QRectF box = renderer.viewBoxF();
    return box.height() > 0 ? box.width() / box.height() : 1;
}

QImage render(const QString& name, const QSize& size, const QColor& color) {
    const QString path = SymbolTable::resourcePath(name);
    if (path.isEmpty() || size.isEmpty())
        return {};
    QSvgRenderer renderer(path);
    if (!renderer.isValid())
        return {};

    const QSizeF fitted = renderer.viewBoxF().size().scaled(QSizeF(size), Qt::KeepAspectRatio);
    QImage image(std::max(1, qRound(fitted.width())), std::max(1, qRound(fitted.height())),
                 QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(image.size())));
    }
    if (!SymbolTable::isLogo(name))
        tintAndCut(image, color.isValid() ? color : QColor(Qt::black));
    return image;
}

} // namespace SymbolRenderer
