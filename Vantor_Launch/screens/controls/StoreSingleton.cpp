#include "StoreSingleton.h"

#include <QQmlEngine>

namespace {

constexpr const char* storeProperty = "launchStore";

} // namespace

LaunchStore* StoreSingleton::create(QQmlEngine* engine, QJSEngine*) {
    auto* store = engine->property(storeProperty).value<LaunchStore*>();
    if (!store)
        qFatal("The QML engine was prepared without a store");
    // The store belongs to whoever built it, never to the engine.
    QJSEngine::setObjectOwnership(store, QJSEngine::CppOwnership);
    return store;
}

void StoreSingleton::attach(QQmlEngine& engine, LaunchStore& store) {
    engine.setProperty(storeProperty, QVariant::fromValue(&store));
}
