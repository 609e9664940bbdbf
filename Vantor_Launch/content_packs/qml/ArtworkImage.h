#pragma once

#include "screens/controls/RoundedImage.h"

#include <QUrl>

// A pack's artwork from its URL, through the shared ArtworkCache.
class ArtworkImage : public RoundedImage {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QUrl source READ source WRITE setSource NOTIFY sourceChanged)

public:
    explicit ArtworkImage(QQuickItem* parent = nullptr);

    QUrl source() const { return m_source; }
    void setSource(const QUrl& source);

Q_SIGNALS:
    void sourceChanged();

private:
    QUrl m_source;
};
