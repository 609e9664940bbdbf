#pragma once

#include <QQuickImageProvider>

// "image://symbol/<name>": a symbol in the launcher's foreground colour, for places that take an
// image URL rather than an item (the tray icon).
class SymbolImageProvider : public QQuickImageProvider {
public:
    SymbolImageProvider();
    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};
