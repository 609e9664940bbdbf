#pragma once

#include <QColor>
#include <QImage>
#include <QSize>
#include <QString>

// Draws the artwork of a symbol or logo name (SymbolTable) into an image.
//
// Symbols are single-colour: their SVG draws shapes in black and the parts to cut out of them
// (the check inside a filled circle, the gap around a badge) in pure red; the red becomes
// transparent and everything else takes the requested colour.
namespace SymbolRenderer {

// Width divided by height of the artwork; 1 for an unknown name.
qreal aspectRatio(const QString& name);
// The artwork fitted into size, keeping its proportions. A null image for an unknown name.
// Symbols take the colour; logos ignore it.
QImage render(const QString& name, const QSize& size, const QColor& color);

} // namespace SymbolRenderer
