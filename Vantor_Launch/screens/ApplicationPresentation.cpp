#include "ApplicationPresentation.h"

#include "UiPalette.h"

using namespace Qt::StringLiterals;

QString ApplicationPresentation::sidebarSymbolFor(const InstalledApp& app) {
    return app.isInstalled() ? u"checkmark.circle.fill"_s : u"minus.circle"_s;
}

QColor ApplicationPresentation::sidebarColorFor(const InstalledApp& app) {
    return app.isInstalled() ? UiPalette::green() : UiPalette::slate();
}

QString ApplicationPresentation::sidebarAccessibleNameFor(const InstalledApp& app) {
    return app.name + (app.isInstalled() ? u", installed"_s : u", not installed"_s);
}
