#pragma once

#include <QColor>
#include <QImage>
#include <QQuickPaintedItem>
#include <QtQmlIntegration>

// A symbol or logo of the SymbolTable, fitted into the item with its proportions kept. Symbols are
// drawn in `color`; logos in their own colours.
class SymbolIcon : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
    Q_PROPERTY(Qt::Alignment alignment READ alignment WRITE setAlignment NOTIFY alignmentChanged)
    // False when the name has no artwork, so that a test can find names missing from the table.
    Q_PROPERTY(bool resolved READ resolved NOTIFY nameChanged)

public:
    explicit SymbolIcon(QQuickItem* parent = nullptr);

    QString name() const { return m_name; }
    void setName(const QString& name);
    QColor color() const { return m_color; }
    void setColor(const QColor& color);
    Qt::Alignment alignment() const { return m_alignment; }
    void setAlignment(Qt::Alignment alignment);
    bool resolved() const;

    void paint(QPainter* painter) override;

Q_SIGNALS:
    void nameChanged();
    void colorChanged();
    void alignmentChanged();

private:
    QString m_name;
    QColor m_color;
    Qt::Alignment m_alignment = Qt::AlignCenter;
    QImage m_cache;
    QString m_cacheKey;
};
