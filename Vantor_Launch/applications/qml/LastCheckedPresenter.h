#pragma once

#include "store/LaunchStore.h"

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QtQmlIntegration>

// The overview's "Last checked …" line for the store's applications, kept current while shown.
class LastCheckedPresenter : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(LaunchStore* store READ store WRITE setStore NOTIFY storeChanged)
    Q_PROPERTY(QString text READ text NOTIFY textChanged)

public:
    explicit LastCheckedPresenter(QObject* parent = nullptr);

    LaunchStore* store() const { return m_store; }
    void setStore(LaunchStore* store);
    QString text() const { return m_text; }

Q_SIGNALS:
    void storeChanged();
    void textChanged();

private:
    void refresh();

    QPointer<LaunchStore> m_store;
    QMetaObject::Connection m_appsConnection;
    QString m_text;
    // "5 minutes ago" ages while it is shown.
    QTimer m_clock;
};
