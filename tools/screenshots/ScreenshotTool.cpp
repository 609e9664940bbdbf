// Starts the real views offscreen on stores in demo mode and in chosen states, and writes a PNG of
// each window and state, for reviewing the screens without a desktop.

#include "LauncherApp.h"
#include "QmlEngineSetup.h"
#include "ScreenshotServices.h"
#include "SymbolRenderer.h"
#include "SymbolTable.h"
#include "UiPalette.h"
#include "foundation/BuildSettings.h"
#include "foundation/DemoData.h"

#include <QApplication>
#include <QDir>
#include <QPainter>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <QWidget>
#include <QtQml/qqmlextensionplugin.h>
#include <cstdio>
#include <functional>

Q_IMPORT_QML_PLUGIN(Vantor_LaunchPlugin)

using namespace Qt::StringLiterals;

namespace {

struct Shot {
    QString name;
    ScreenshotScene scene;
    std::optional<Launch::DemoScenario> demo; // none: the scene's services
    std::function<void(LaunchStore&)> prepare;
    QSize size{1440, 960};
    bool settingsWindow = false;
    // Clicks in the main window after `prepare`, by the clicked items' object names ("a/b": the
    // item b inside the item a). "end:" before a scroll view's name scrolls it to its end instead,
    // and "press:" presses a button that is out of sight.
    QStringList clicks = {};
};

// The first item under `from` with that object name, sheets in the window's overlay included.
QQuickItem* findItem(QQuickItem* from, const QString& objectName) {
    if (!from)
        return nullptr;
    if (from->objectName() == objectName)
        return from;
    for (QQuickItem* child : from->childItems()) {
        if (QQuickItem* found = findItem(child, objectName))
            return found;
    }
    return nullptr;
}

bool clickItem(QQuickWindow* window, QString objectName) {
    const bool scrolls = objectName.startsWith(u"end:"_s);
    const bool presses = objectName.startsWith(u"press:"_s);
    if (scrolls || presses)
        objectName = objectName.mid(objectName.indexOf(u':') + 1);
    QQuickItem* item = window->contentItem();
    for (const QString& name : objectName.split(u'/'))
        item = findItem(item, name);
    if (!item || !item->isVisible()) {
        std::fprintf(stderr, "Nothing to click named %s\n", qPrintable(objectName));
        return false;
    }
    if (scrolls) {
        // A scroll view's flickable is its content item.
        auto* flickable = item->property("contentItem").value<QQuickItem*>();
        const qreal end = flickable->property("contentHeight").toReal() - flickable->height();
        flickable->setProperty("contentY", std::max(0.0, end));
        QTest::qWait(100);
        return true;
    }
    if (presses) {
        QMetaObject::invokeMethod(item, "clicked");
        QTest::qWait(250);
        return true;
    }
    const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
    QTest::mouseClick(window, Qt::LeftButton, {}, centre.toPoint());
    QTest::qWait(250); // the sheet's transition
    return true;
}

bool capture(const Shot& shot, const QDir& folder) {
    ScreenshotServices services(shot.scene);
    auto store = services.makeStore();
    if (shot.demo) {
        store->setDemoEnabled(true);
        store->setDemoScenario(*shot.demo);
    }
    auto settings = std::make_shared<QSettings>(services.settingsPath(), QSettings::IniFormat);
    LauncherApp launcher(store.get(), settings,
                         makeSelfUpdater({std::nullopt, QStringLiteral(LAUNCHER_VERSION),
                                          QStringLiteral(LAUNCHER_BUILD), nullptr}),
                         services.locationChooser());

    QQmlApplicationEngine engine;
    prepareQmlEngine(engine, *store);
    engine.setInitialProperties({{u"launcher"_s, QVariant::fromValue(&launcher)}});
    engine.load(QUrl(u"qrc:/Vantor/Launch/Main.qml"_s));
    if (engine.rootObjects().isEmpty())
        return false;
    QObject* root = engine.rootObjects().constFirst();
    auto* main = root->property("mainWindow").value<QQuickWindow*>();
    auto* settingsWindow = root->property("settingsWindow").value<QQuickWindow*>();
    main->resize(shot.size);
    QTest::qWait(300); // start() and the first layout
    if (shot.prepare)
        shot.prepare(*store);
    for (const QString& name : shot.clicks) {
        if (!clickItem(main, name))
            return false;
    }
    QQuickWindow* window = main;
    if (shot.settingsWindow) {
        settingsWindow->show();
        window = settingsWindow;
    }
    QTest::qWait(300);
    const QImage image = window->grabWindow();
    const QString path = folder.filePath(shot.name + u".png"_s);
    if (image.isNull() || !image.save(path)) {
        std::fprintf(stderr, "Could not write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s\n", qPrintable(path));
    // Panels the desktop draws as windows of their own (the folder panel).
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (!widget->isVisible())
            continue;
        const QString panelPath = folder.filePath(shot.name + u"-window.png"_s);
        widget->grab().save(panelPath);
        std::printf("%s\n", qPrintable(panelPath));
        widget->close();
    }
    // The account area at the foot of the sidebar, at full scale, for the sync states.
    if (shot.name.startsWith(u"sync-"_s)) {
        const QRect area(0, image.height() - 220, 330, 220);
        image.copy(area).save(folder.filePath(shot.name + u"-account.png"_s));
    }
    return true;
}

QList<Shot> shots() {
    using Launch::DemoScenario;
    using Launch::LaunchSection;
    using Refresh = ScreenshotScene::Refresh;
    const auto select = [](LaunchSection section) {
        return [section](LaunchStore& store) { store.setSelection(section); };
    };
    QList<Shot> list;
    list.append({u"main-overview"_s, {}, DemoScenario::combined, select(LaunchSection::overview)});
    list.append({u"overview-running"_s,
                 {.refresh = Refresh::succeeds, .directorRunning = true, .updatePublished = false},
                 std::nullopt,
                 {}});
    list.append({u"overview-running-update"_s,
                 {.refresh = Refresh::succeeds, .directorRunning = true},
                 std::nullopt,
                 {}});
    list.append({u"overview-not-installed"_s,
                 {.refresh = Refresh::succeeds, .directorInstalled = false},
                 std::nullopt,
                 {}});
    list.append({u"overview-minimum-size"_s,
                 {},
                 DemoScenario::combined,
                 select(LaunchSection::overview),
                 QSize(1000, 720)});
    list.append({u"locate-panel"_s,
                 {.refresh = Refresh::succeeds, .directorInstalled = false},
                 std::nullopt,
                 [](LaunchStore& store) {
                     store.requestChooseApplicationLocation(store.apps().constFirst().id);
                 }});
    list.append(
        {u"main-content-packs"_s, {}, DemoScenario::combined, select(LaunchSection::packs)});
    list.append({u"main-help"_s, {}, DemoScenario::combined, select(LaunchSection::help)});
    list.append({u"main-help-missing-catalogue"_s,
                 {true, Refresh::succeeds, false, false},
                 std::nullopt,
                 select(LaunchSection::help)});
    list.append({u"banner-short"_s, {}, DemoScenario::combined, [](LaunchStore& store) {
                     store.setMessage(u"Demo mode cannot update real applications."_s);
                 }});
    list.append(
        {u"banner-long-help"_s, {}, DemoScenario::combined, [](LaunchStore& store) {
             store.setSelection(Launch::LaunchSection::help);
             store.setMessage(
                 u"Vantor Director could not be closed automatically. Quit it normally, then try the update again. Website account refresh was unavailable. Your installed applications were not changed."_s);
         }});
    list.append({u"sync-signed-out"_s, {}, DemoScenario::signedOut, {}});
    list.append({u"sync-synced"_s, {true, Refresh::succeeds}, std::nullopt, {}});
    list.append({u"sync-stale"_s, {true, std::nullopt}, std::nullopt, {}});
    list.append({u"sync-offline"_s, {true, Refresh::offline}, std::nullopt, {}});
    list.append({u"sync-session-expired"_s, {true, Refresh::sessionOver}, std::nullopt, {}});
    list.append({u"sync-failed"_s, {true, Refresh::otherAccount}, std::nullopt, {}});
    list.append({u"sync-syncing"_s, {true, Refresh::neverEnds}, std::nullopt, {}});
    list.append({u"sync-demo-expired-session"_s, {}, DemoScenario::expiredSession, {}});
    list.append({u"running-update-alert"_s,
                 {true, Refresh::succeeds, true},
                 std::nullopt,
                 [](LaunchStore& store) {
                     store.setMessage(std::nullopt);
                     store.updateFlow().updateApplication(store.apps().constFirst());
                 }});
    list.append({u"main-minimum-size"_s,
                 {true, Refresh::otherAccount},
                 std::nullopt,
                 select(LaunchSection::help),
                 QSize(1000, 720)});
    list.append({u"settings"_s, {}, DemoScenario::combined, {}, QSize(1440, 960), true});

    // The overview in each demo scenario, and the rows' other states.
    list.append({u"overview-demo-signed-out"_s, {}, DemoScenario::signedOut, {}});
    list.append({u"overview-demo-expired-session"_s, {}, DemoScenario::expiredSession, {}});
    list.append({u"overview-row-stale"_s,
                 {.refresh = Refresh::succeeds, .releaseCheckFails = true},
                 std::nullopt,
                 {}});
    list.append({u"overview-row-checking"_s,
                 {.refresh = Refresh::succeeds, .updateNeverEnds = true},
                 std::nullopt,
                 [](LaunchStore& store) {
                     store.setMessage(std::nullopt);
                     store.updateFlow().updateApplication(store.apps().constFirst());
                 }});

    // The detail sheet of each application, the full changelog, and the narrowest window.
    const QSize wide(1440, 960);
    const QSize narrow(1000, 720);
    const auto demoDetail = [&list](const QString& name, const QStringList& steps, QSize size) {
        list.append({name, {}, DemoScenario::combined, {}, size, false, steps});
    };
    demoDetail(u"detail-director"_s, {u"logoButton"_s}, wide);
    demoDetail(u"detail-creator"_s, {u"applicationRow-Vantor Creator/logoButton"_s}, wide);
    demoDetail(u"detail-open-in-demo"_s, {u"logoButton"_s, u"detailOpenButton"_s}, narrow);
    demoDetail(u"detail-director-end"_s, {u"logoButton"_s, u"end:detailScroll"_s}, wide);
    demoDetail(u"detail-full-changelog"_s, {u"logoButton"_s, u"press:fullChangelogButton"_s}, wide);
    demoDetail(u"detail-minimum-size"_s, {u"logoButton"_s}, narrow);
    list.append({u"detail-not-installed"_s,
                 {.refresh = Refresh::succeeds, .directorInstalled = false},
                 std::nullopt,
                 {},
                 wide,
                 false,
                 {u"logoButton"_s}});

    // The Content Packs section: a selected pack in each state, an empty search, no catalogue.
    const auto demoPacks = [&list](const QString& name, std::function<void(LaunchStore&)> then) {
        list.append({name, {}, DemoScenario::combined, [then](LaunchStore& store) {
                         store.setSelection(Launch::LaunchSection::packs);
                         then(store);
                     }});
    };
    demoPacks(u"packs-installed-selected"_s,
              [](LaunchStore& store) { store.selectPack(u"demo-floral-reflections"_s); });
    demoPacks(u"packs-empty-search"_s, [](LaunchStore& store) {
        store.selectPack(u"demo-coastal-memories"_s);
        store.setSearchText(u"volcano"_s);
    });
    demoPacks(u"packs-installed-filter"_s,
              [](LaunchStore& store) { store.setPackFilter(Launch::PackFilter::installed); });
    list.append({u"packs-downloading"_s,
                 {.refresh = Refresh::succeeds, .packDownloadNeverEnds = true},
                 std::nullopt,
                 [](LaunchStore& store) {
                     store.setSelection(Launch::LaunchSection::packs);
                     store.selectPack(u"demo-coastal-memories"_s);
                     store.requestInstallPack(u"demo-coastal-memories"_s);
                 }});
    list.append({u"packs-catalogue-unavailable"_s,
                 {.refresh = Refresh::succeeds, .catalogueConfigured = false},
                 std::nullopt,
                 select(LaunchSection::packs)});
    list.append({u"packs-minimum-size"_s,
                 {},
                 DemoScenario::combined,
                 select(LaunchSection::packs),
                 narrow});
    return list;
}

// Every symbol at three sizes and every logo, for judging the artwork itself.
bool drawSymbolSheet(const QDir& folder) {
    const QStringList names = SymbolTable::symbolNames();
    const int cell = 120;
    const int columns = 5;
    const int rows = int((names.size() + columns - 1) / columns);
    QImage sheet(columns * cell, rows * cell + 3 * 70, QImage::Format_ARGB32_Premultiplied);
    sheet.fill(UiPalette::midnight());
    QPainter painter(&sheet);
    painter.setPen(UiPalette::slate());
    QFont font = painter.font();
    font.setPixelSize(9);
    painter.setFont(font);
    for (int i = 0; i < names.size(); ++i) {
        const QPoint origin((i % columns) * cell, (i / columns) * cell);
        painter.drawImage(origin + QPoint(10, 10),
                          SymbolRenderer::render(names[i], QSize(48, 48), UiPalette::paper()));
        painter.drawImage(origin + QPoint(68, 10),
                          SymbolRenderer::render(names[i], QSize(24, 24), UiPalette::teal()));
        painter.drawImage(origin + QPoint(68, 44),
                          SymbolRenderer::render(names[i], QSize(16, 16), UiPalette::gold()));
        painter.drawText(QRect(origin + QPoint(4, 70), QSize(cell - 8, 40)),
                         Qt::AlignLeft | Qt::TextWordWrap, names[i]);
    }
    int y = rows * cell;
    for (const QString& logo : SymbolTable::logoNames()) {
        painter.drawImage(QPoint(10, y + 10), SymbolRenderer::render(logo, QSize(400, 50), {}));
        y += 70;
    }
    painter.end();
    return sheet.save(folder.filePath(u"symbols.png"_s));
}

} // namespace

int main(int argc, char* argv[]) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    application.setOrganizationName(u"Vantor"_s);
    application.setApplicationName(u"Vantor Launch Screenshots"_s);

    const QString folderPath = argc > 1 ? QString::fromLocal8Bit(argv[1]) : u"screenshots"_s;
    QDir folder(folderPath);
    if (!folder.mkpath(u"."_s)) {
        std::fprintf(stderr, "Could not create %s\n", qPrintable(folderPath));
        return 1;
    }
    int failures = drawSymbolSheet(folder) ? 0 : 1;
    // A second argument takes only the shots whose names start with it.
    const QString only = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QString();
    for (const Shot& shot : shots()) {
        if (!shot.name.startsWith(only))
            continue;
        if (!capture(shot, folder))
            ++failures;
    }
    return failures == 0 ? 0 : 1;
}
