#include "QmlEngineSetup.h"

#include "screens/controls/StoreSingleton.h"
#include "screens/controls/SymbolImageProvider.h"
#include "screens/controls/UiPalette.h"

#include <QGuiApplication>
#include <QQmlEngine>

using namespace Qt::StringLiterals;

void prepareQmlEngine(QQmlEngine& engine, LaunchStore& store) {
    engine.addImportPath(u"qrc:/"_s);
    StoreSingleton::attach(engine, store);
    engine.addImageProvider(u"symbol"_s, new SymbolImageProvider);
    // The launcher always uses the dark appearance, whatever the desktop's theme.
    QGuiApplication::setPalette(UiPalette::controls());
}
