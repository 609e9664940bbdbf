#include "LastCheckedPresenter.h"

#include "ApplicationPresentation.h"

LastCheckedPresenter::LastCheckedPresenter(QObject* parent)
    : QObject(parent) {
    m_clock.setInterval(30'000);
    connect(&m_clock, &QTimer::timeout, this, &LastCheckedPresenter::refresh);
    m_clock.start();
    refresh();
}

void LastCheckedPresenter::setStore(LaunchStore* store) {
    if (m_store == store)
        return;
    disconnect(m_appsConnection);
    m_store = store;
    if (store)
        m_appsConnection =
            connect(store, &LaunchStore::appsChanged, this, &LastCheckedPresenter::refresh);
    Q_EMIT storeChanged();
    refresh();
}

void LastCheckedPresenter::refresh() {
    const QString text =
        m_store ? ApplicationPresentation::lastCheckedText(m_store->apps(), m_store->now())
                : QString();
    if (text == m_text)
        return;
    m_text = text;
    Q_EMIT textChanged();
}
