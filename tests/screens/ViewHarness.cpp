#include "ViewHarness.h"

#include "QmlEngineSetup.h"
#include "core/BuildSettings.h"

#include <QTest>
#include <QtQuickTest/quicktest.h>

using namespace Qt::StringLiterals;

namespace {

void collect(QObject* object, const QString& name, QList<QObject*>& found, QSet<QObject*>& seen) {
    if (!object || seen.contains(object))
        return;
    seen.insert(object);
    if (object->objectName() == name)
        found.append(object);
    for (QObject* child : object->children())
        collect(child, name, found, seen);
    if (auto* item = qobject_cast<QQuickItem*>(object)) {
        for (QQuickItem* child : item->childItems())
            collect(child, name, found, seen);
    }
}

// The fixture's services, with the windows' own location panel in place of the scripted chooser.
LaunchCollaborators withPanelChooser(LaunchCollaborators collaborators,
                                     std::shared_ptr<PanelLocationChooser> chooser) {
    collaborators.locationChooser = std::move(chooser);
    return collaborators;
}

} // namespace

ViewHarness::ViewHarness(StoreFixture& fixture, bool demo)
    : m_locationChooser(std::make_shared<PanelLocationChooser>())
    , m_store(std::make_unique<LaunchStore>(
          withPanelChooser(fixture.collaborators(), m_locationChooser))) {
    m_store->setDemoEnabled(demo);
    auto settings = std::make_shared<QSettings>(fixture.folder.filePath(u"launcher.ini"_s),
                                                QSettings::IniFormat);
    m_launcher = std::make_unique<LauncherApp>(
        m_store.get(), settings,
        makeSelfUpdater({std::nullopt, QStringLiteral(LAUNCHER_VERSION),
                         QStringLiteral(LAUNCHER_BUILD), nullptr}),
        m_locationChooser);
    m_engine = std::make_unique<QQmlApplicationEngine>();
    prepareQmlEngine(*m_engine);
    m_engine->setInitialProperties({{u"store"_s, QVariant::fromValue(m_store.get())},
                                    {u"launcher"_s, QVariant::fromValue(m_launcher.get())}});
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

QList<QObject*> ViewHarness::findAll(QObject* from, const QString& objectName) const {
    QList<QObject*> found;
    QSet<QObject*> seen;
    collect(from, objectName, found, seen);
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

QList<QQuickItem*> ViewHarness::allItems(QQuickItem* root) {
    QList<QQuickItem*> items{root};
    for (qsizetype i = 0; i < items.size(); ++i)
        items.append(items[i]->childItems());
    return items;
}

void answerEverything(StoreFixture& fixture) {
    fixture.discovery->discover.answerWith({fixture.director(), fixture.creator()});
    fixture.releaseChecker->latest.answerWith(std::optional<AvailableApplicationRelease>());
    fixture.catalogue->load.answerWith(QList<ContentPack>());
    fixture.installer->versions.answerWith(QHash<QString, QString>());
}
