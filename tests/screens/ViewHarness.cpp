#include "ViewHarness.h"

#include "QmlEngineSetup.h"
#include "foundation/BuildSettings.h"

#include <QTest>
#include <QtQuickTest/quicktest.h>

using namespace Qt::StringLiterals;

ViewHarness::ViewHarness(StoreFixture& fixture, bool demo)
    : m_locationChooser(std::make_shared<PanelLocationChooser>()) {
    // The fixture's services, with the windows' own location panel in place of the scripted one.
    LaunchCollaborators collaborators = fixture.collaborators();
    collaborators.locationChooser = m_locationChooser;
    m_store = std::make_unique<LaunchStore>(collaborators);
    m_store->setDemoEnabled(demo);
    auto settings = std::make_shared<QSettings>(fixture.folder.filePath(u"launcher.ini"_s),
                                                QSettings::IniFormat);
    m_launcher = std::make_unique<LauncherApp>(
        m_store.get(), settings,
        makeSelfUpdater({std::nullopt, QStringLiteral(LAUNCHER_VERSION),
                         QStringLiteral(LAUNCHER_BUILD), nullptr}),
        m_locationChooser);
    m_engine = std::make_unique<QQmlApplicationEngine>();
    prepareQmlEngine(*m_engine, *m_store);
    m_engine->setInitialProperties({{u"launcher"_s, QVariant::fromValue(m_launcher.get())}});
    m_engine->load(QUrl(u"qrc:/Vantor/Launch/Main.qml"_s));
    if (m_engine->rootObjects().isEmpty())
        qFatal("Main.qml did not load");
    m_root = m_engine->rootObjects().constFirst();
    if (!QTest::qWaitForWindowExposed(mainWindow()))
        qFatal("the main window was not shown");
}

ViewHarness::~ViewHarness() {
    // The windows go before the store they read.
    m_engine.reset();
}

QQuickWindow* ViewHarness::mainWindow() const {
    return m_root->property("mainWindow").value<QQuickWindow*>();
}

QQuickWindow* ViewHarness::settingsWindow() const {
    return m_root->property("settingsWindow").value<QQuickWindow*>();
}

QObject* ViewHarness::tray() const {
    return m_root->property("menuBarExtra").value<QObject*>();
}

QList<QObject*> ViewHarness::descendants(QObject* from) {
    QList<QObject*> found{from};
    QSet<QObject*> seen{from};
    for (qsizetype i = 0; i < found.size(); ++i) {
        QObjectList children = found[i]->children();
        if (auto* item = qobject_cast<QQuickItem*>(found[i]))
            children.append(QObjectList(item->childItems().cbegin(), item->childItems().cend()));
        for (QObject* child : children) {
            if (!seen.contains(child))
                found.append(*seen.insert(child));
        }
    }
    return found;
}

QList<QObject*> ViewHarness::findAll(QObject* from, const QString& objectName) const {
    QList<QObject*> found = descendants(from);
    found.removeIf([&](QObject* object) { return object->objectName() != objectName; });
    return found;
}

QObject* ViewHarness::find(QObject* from, const QString& objectName) const {
    const auto found = findAll(from, objectName);
    return found.isEmpty() ? nullptr : found.constFirst();
}

void ViewHarness::click(QQuickItem* item) const {
    // Where the item is once the layouts have caught up with the latest change of the store.
    if (!QQuickTest::qWaitForPolish(item->window()))
        QTest::qFail("the window's layout did not settle", __FILE__, __LINE__);
    const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
    QTest::mouseClick(item->window(), Qt::LeftButton, {}, centre.toPoint());
}

bool ViewHarness::activate() const {
    mainWindow()->requestActivate();
    return QTest::qWaitForWindowActive(mainWindow());
}
