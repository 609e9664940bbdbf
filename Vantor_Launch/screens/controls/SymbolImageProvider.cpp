#include "SymbolImageProvider.h"

#include "SymbolRenderer.h"
#include "UiPalette.h"

SymbolImageProvider::SymbolImageProvider()
    : QQuickImageProvider(QQuickImageProvider::Image) {}

QImage SymbolImageProvider::requestImage(const QString& id, QSize* size,
                                         const QSize& requestedSize) {
    const QSize target =
        requestedSize.isValid() && !requestedSize.isEmpty() ? requestedSize : QSize(64, 64);
    const QImage image = SymbolRenderer::render(id, target, UiPalette::paper());
    if (size)
        *size = image.size();
    return image;
}
