#pragma once

#include "LauncherApp.h"
#include "StoreDoubles.h"

#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <memory>

// The real windows of the launcher, loaded offscreen from the module on a store of the test's
// choosing, with the tray setting kept in the fixture's folder. The store asks the windows' own
// location panel where an application is.
class ViewHarness {
public:
    explicit ViewHarness(StoreFixture& fixture, bool demo = false);
    ~ViewHarness();

    LaunchStore& store() { return *m_store; }
    LauncherApp& launcher() { return *m_launcher; }
    PanelLocationChooser& locationChooser() { return *m_locationChooser; }
    QQuickWindow* mainWindow() const;
    QQuickWindow* settingsWindow() const;
    QObject* tray() const;

    // Every object under `from`, visual children included, nearest first.
    static QList<QObject*> descendants(QObject* from);
    // The first of them with that objectName.
    QObject* find(QObject* from, const QString& objectName) const;
    QList<QObject*> findAll(QObject* from, const QString& objectName) const;
    QObject* find(const QString& objectName) const {
        return find(mainWindow()->contentItem(), objectName);
    }
    QQuickItem* item(const QString& objectName) const {
        return item(mainWindow()->contentItem(), objectName);
    }
    QQuickItem* item(QObject* from, const QString& objectName) const {
        return qobject_cast<QQuickItem*>(find(from, objectName));
    }
    void click(QQuickItem* item) const;
    // Keys go to the active window: the main one, once it is.
    bool activate() const;
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) const {
        QTest::keyClick(mainWindow(), key, modifiers);
    }

private:
    std::shared_ptr<PanelLocationChooser> m_locationChooser;
    std::unique_ptr<LaunchStore> m_store;
    std::unique_ptr<LauncherApp> m_launcher;
    std::unique_ptr<QQmlApplicationEngine> m_engine;
    QObject* m_root = nullptr;
};

inline QString textOf(QObject* object) {
    return object ? object->property("text").toString() : QString();
}

// A property of the item's Accessible attached object.
inline QVariant accessible(QObject* item, const char* property) {
    for (QObject* child : item->children()) {
        if (qstrcmp(child->metaObject()->className(), "QQuickAccessibleAttached") == 0)
            return child->property(property);
    }
    return {};
}

// A popup, sheet or alert that has finished opening.
inline bool isOpen(QObject* popup) {
    return popup && popup->property("opened").toBool();
}

inline bool isShown(QObject* object) {
    auto* item = qobject_cast<QQuickItem*>(object);
    return item && item->isVisible();
}
