#pragma once

#include "store/LaunchStore.h"

#include <QtQml/qqml.h>

class QJSEngine;
class QQmlEngine;

// The one store of an engine, known to the views as the singleton `Store`: each engine is given
// its store by prepareQmlEngine, so that every test can build its own.
struct StoreSingleton {
    Q_GADGET
    QML_FOREIGN(LaunchStore)
    QML_SINGLETON
    QML_NAMED_ELEMENT(Store)

public:
    static LaunchStore* create(QQmlEngine* engine, QJSEngine*);
    static void attach(QQmlEngine& engine, LaunchStore& store);
};
