#include "BundleBuilder.h"
#include "LauncherInfo.h"
#include "ViewHarness.h"
#include "foundation/BuildSettings.h"

#include <QApplication>
#include <QFileDialog>
#include <QQmlListReference>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

Q_IMPORT_QML_PLUGIN(Vantor_LaunchPlugin)

using namespace Qt::StringLiterals;
using Launch::LaunchSection;

namespace {

QList<QObject*> trayItems(const ViewHarness& harness) {
    QObject* menu = harness.tray()->property("menu").value<QObject*>();
    QQmlListReference items(menu, "items");
    QList<QObject*> result;
    for (qsizetype i = 0; i < items.count(); ++i)
        result.append(items.at(i));
    return result;
}

// The texts of the tray menu as the user sees them: visible items, separators as "—".
QStringList trayLines(const ViewHarness& harness) {
    QStringList lines;
    for (QObject* item : trayItems(harness)) {
        if (!item->property("visible").toBool())
            continue;
        if (item->property("separator").toBool())
            lines.append(u"—"_s);
        else
            lines.append(item->property("text").toString() +
                         (item->property("enabled").toBool() ? QString() : u" (disabled)"_s));
    }
    return lines;
}

void triggerTrayItem(const ViewHarness& harness, const QString& text) {
    for (QObject* item : trayItems(harness)) {
        if (item->property("text").toString() == text && item->property("visible").toBool()) {
            QMetaObject::invokeMethod(item, "triggered");
            return;
        }
    }
    QFAIL(qPrintable(u"no tray item "_s + text));
}

// The overview's row of an application, once the store's applications have settled.
QQuickItem* applicationRow(const ViewHarness& harness, const QString& name) {
    QQuickItem* row = nullptr;
    const bool found =
        QTest::qWaitFor([&] { return (row = harness.item(u"applicationRow-"_s + name)); });
    return found ? row : nullptr;
}

// The titles of the buttons a row shows.
QStringList rowButtons(const ViewHarness& harness, QQuickItem* row) {
    QStringList titles;
    for (const QString& name :
         {u"locateButton"_s, u"openButton"_s, u"updateButton"_s, u"revealButton"_s}) {
        if (isShown(harness.find(row, name)))
            titles.append(textOf(harness.find(row, name)));
    }
    return titles;
}

// The folder panel the main window shows (Qt draws its own where the desktop has none).
QFileDialog* shownFolderPanel() {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* panel = qobject_cast<QFileDialog*>(widget); panel && panel->isVisible())
            return panel;
    }
    return nullptr;
}

// The user accepts the panel with nothing selected inside `folder`: the folder itself.
void acceptFolder(QFileDialog* panel, const QString& folder) {
    panel->setDirectory(folder);
    static_cast<QDialog*>(panel)->accept();
}

// A browser sign-in that the test sets waiting, and that counts the waits it was asked to end.
class WaitingBrowser : public BrowserSignIn {
public:
    int cancellations = 0;
    using BrowserSignIn::setWaiting;
    QCoro::Task<QUrl> authenticate(QUrl, QString) override {
        throw LaunchError::url(LaunchError::unsupportedURL);
        co_return QUrl();
    }
    void cancel() override {
        if (isWaiting())
            ++cancellations;
        setWaiting(false);
    }
};

} // namespace

// The real windows on stores built for each case: what they show, and which store operations
// the user's actions reach.
class ViewsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void loadsEveryWindowWithArtworkForEverySymbol() {
        // A missing QML module, a broken binding or an unknown type shows as a warning.
        QTest::failOnWarning(QRegularExpression(u"qrc:/"_s));
        StoreFixture fixture;
        ViewHarness harness(fixture, true);
        harness.settingsWindow()->show();
        QVERIFY(QTest::qWaitForWindowExposed(harness.settingsWindow()));
        for (const LaunchSection section :
             {LaunchSection::overview, LaunchSection::packs, LaunchSection::help}) {
            harness.store().setSelection(section);
            QTest::qWait(20);
        }

        int symbols = 0;
        for (QQuickWindow* window : {harness.mainWindow(), harness.settingsWindow()}) {
            for (QObject* item : harness.descendants(window->contentItem())) {
                if (qstrcmp(item->metaObject()->className(), "SymbolIcon") != 0 ||
                    item->property("name").toString().isEmpty())
                    continue;
                ++symbols;
                QVERIFY2(item->property("resolved").toBool(),
                         qPrintable(item->property("name").toString()));
            }
        }
        QVERIFY(symbols > 10);
        QCOMPARE(harness.mainWindow()->title(), u"Vantor Launcher"_s);
    }

    void startsOnEveryAppearanceAndFollowsTheWorkspaceOnlyWhileShown() {
        StoreFixture fixture;
        fixture.answerStartUp({fixture.director(), fixture.creator()});
        ViewHarness harness(fixture);
        QTRY_COMPARE(fixture.discovery->discover.callCount(), 1);

        fixture.workspace->simulateLaunch();
        QTRY_COMPARE(fixture.discovery->discover.callCount(), 2);

        harness.mainWindow()->close();
        QVERIFY(!harness.mainWindow()->isVisible());
        QTest::qWait(50); // the window reports its closing on the next turn of the event loop
        fixture.workspace->simulateLaunch();
        fixture.workspace->simulateTermination();
        QTest::qWait(100);
        QCOMPARE(fixture.discovery->discover.callCount(), 2);

        // The tray reopens the closed window directly on the chosen section, and start() runs.
        triggerTrayItem(harness, u"Browse Content Packs"_s);
        QVERIFY(harness.mainWindow()->isVisible());
        QCOMPARE(harness.store().selection(), LaunchSection::packs);
        QTRY_COMPARE(fixture.discovery->discover.callCount(), 3);
        fixture.workspace->simulateTermination();
        QTRY_COMPARE(fixture.discovery->discover.callCount(), 4);
    }

    void bannerShowsTheLatestMessageUntilDismissedAndWrapsLongOnes() {
        StoreFixture fixture;
        ViewHarness harness(fixture, true);
        // The narrowest the window can be, where a long message has to wrap.
        QCOMPARE(harness.mainWindow()->minimumSize(), QSize(1000, 720));
        harness.mainWindow()->resize(1000, 720);
        QQuickItem* banner = harness.item(u"messageBanner"_s);
        auto* text = harness.item(banner, u"messageText"_s);
        QTRY_VERIFY(!banner->isVisible()); // start() clears any message

        harness.store().setMessage(u"First outcome."_s);
        QVERIFY(banner->isVisible());
        QCOMPARE(textOf(text), u"First outcome."_s);
        // Above the detail content, beside the sidebar.
        QVERIFY(banner->mapToScene(QPointF(0, 0)).x() >= 230);

        QSignalSpy visibility(banner, &QQuickItem::visibleChanged);
        harness.store().setMessage(u"Second outcome."_s);
        QCOMPARE(textOf(text), u"Second outcome."_s);
        QCOMPARE(visibility.count(), 0);

        harness.click(harness.item(u"dismissButton"_s));
        QCOMPARE(harness.store().message(), std::nullopt);
        QVERIFY(!banner->isVisible());

        harness.store().setSelection(LaunchSection::help);
        harness.store().setMessage(u"Second outcome."_s);
        QVERIFY(banner->isVisible());
        QCOMPARE(textOf(text), u"Second outcome."_s);
        // For the keyboard and assistive tools, one element: the message, which Space dismisses.
        QCOMPARE(accessible(banner, "name").toString(), u"Second outcome."_s);
        QVERIFY(accessible(harness.item(u"dismissButton"_s), "ignored").toBool());
        banner->forceActiveFocus();
        QTest::keyClick(harness.mainWindow(), Qt::Key_Space);
        QCOMPARE(harness.store().message(), std::nullopt);
        harness.store().setMessage(u"Second outcome."_s);

        // A long message wraps inside the banner, the dismiss button after it at the banner's end.
        harness.store().setMessage(
            u"Vantor Director could not be closed automatically. Quit it normally, then try the update again. Website account refresh was unavailable. Your installed applications were not changed."_s);
        QQuickItem* dismiss = harness.item(u"dismissButton"_s);
        QTRY_VERIFY(text->property("lineCount").toInt() > 1);
        QVERIFY(QQuickTest::qWaitForPolish(harness.mainWindow()));
        const QRectF bannerBox = banner->mapRectToScene(banner->boundingRect());
        const QRectF textBox = text->mapRectToScene(text->boundingRect());
        const QRectF dismissBox = dismiss->mapRectToScene(dismiss->boundingRect());
        QVERIFY(bannerBox.contains(textBox));
        QVERIFY(bannerBox.contains(dismissBox));
        QVERIFY(dismissBox.left() >= textBox.right());
        QVERIFY(bannerBox.right() - dismissBox.right() <= 13);
        QVERIFY(bannerBox.right() <= harness.mainWindow()->width());
    }

    void sidebarHighlightFollowsTheSelectionWhereverItChanges() {
        StoreFixture fixture;
        ViewHarness harness(fixture, true);
        harness.mainWindow()->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(harness.mainWindow()));
        const auto highlighted = [&] {
            QStringList rows;
            for (const QString& name :
                 {u"sidebar-Overview"_s, u"sidebar-Content Packs"_s, u"sidebar-Help"_s}) {
                QQuickItem* row = harness.item(name);
                if (!row)
                    return QStringList{u"missing "_s + name};
                if (row->property("selected").toBool())
                    rows.append(name);
            }
            return rows;
        };
        QCOMPARE(highlighted(), QStringList{u"sidebar-Overview"_s});

        harness.click(harness.item(u"sidebar-Help"_s));
        QCOMPARE(harness.store().selection(), LaunchSection::help);
        QCOMPARE(highlighted(), QStringList{u"sidebar-Help"_s});

        // The "Navigate" menu's shortcut.
        QTest::keyClick(harness.mainWindow(), Qt::Key_2, Qt::ControlModifier);
        QCOMPARE(harness.store().selection(), LaunchSection::packs);
        QCOMPARE(highlighted(), QStringList{u"sidebar-Content Packs"_s});

        // Another screen (here the store directly, as the overview's "View all packs" does).
        harness.store().setSelection(LaunchSection::overview);
        QCOMPARE(highlighted(), QStringList{u"sidebar-Overview"_s});
        QVERIFY(isShown(harness.item(u"overviewView"_s)));
        QVERIFY(!isShown(harness.item(u"helpView"_s)));

        // The "Check for Updates" command runs the launcher's own check.
        QTest::keyClick(harness.mainWindow(), Qt::Key_R, Qt::ControlModifier);
        QCOMPARE(harness.store().message(),
                 std::optional<QString>(u"Launcher updates are not configured in this build."_s));
    }

    void overviewAndTrayShowTheDirectorTheCreatorBuiltIntoItAndTheirUpdates() {
        StoreFixture fixture;
        fixture.answerStartUp({fixture.director(), fixture.creator()},
                              {makePack(u"a"_s, u"A"_s, {}, u"1.10"_s)});
        fixture.releaseChecker->latest.answerWith(
            AvailableApplicationRelease{u"2.5.0"_s, u"2500"_s, std::nullopt});
        fixture.installer->versions.answerWith(QHash<QString, QString>{{u"a"_s, u"1.9"_s}});
        fixture.updater->prepare.holdCalls();
        ViewHarness harness(fixture);
        QTRY_COMPARE(textOf(harness.item(u"lastChecked"_s)), u"Last checked now"_s);
        harness.click(harness.item(u"checkForUpdatesButton"_s));
        QTRY_COMPARE(fixture.discovery->discover.callCount(), 2);
        QTRY_COMPARE(harness.store().updateCount(), 2);

        QQuickItem* director = applicationRow(harness, u"Vantor Director"_s);
        QQuickItem* creator = applicationRow(harness, u"Vantor Creator"_s);
        QCOMPARE(textOf(harness.find(director, u"statusText"_s)), u"Installed 2.4.1 (2410)"_s);
        QCOMPARE(rowButtons(harness, director),
                 QStringList({u"Open"_s, u"Update to 2.5.0 build 2500"_s, u"Reveal in Finder"_s}));
        // The rows follow the store's order.
        QVERIFY(creator->mapToScene({0, 0}).y() > director->mapToScene({0, 0}).y());
        // A newer build of the same version changes only the release: the title follows it.
        fixture.releaseChecker->latest.answerWith(
            AvailableApplicationRelease{u"2.5.0"_s, u"2501"_s, std::nullopt});
        QVERIFY(finishes(harness.store().updateFlow().checkDirectorRelease()));
        QTRY_COMPARE(textOf(harness.find(director, u"updateButton"_s)),
                     u"Update to 2.5.0 build 2501"_s);

        QCOMPARE(trayLines(harness),
                 QStringList({u"Open Vantor Launcher"_s, u"—"_s, u"Updates Available: 2"_s, u"—"_s,
                              u"Open Vantor Director"_s, u"Open Vantor Creator"_s,
                              u"Browse Content Packs"_s, u"—"_s, u"Check for Updates"_s, u"—"_s,
                              u"Quit Vantor Launcher"_s}));
        QCOMPARE(harness.tray()->property("panel").value<QObject*>()->property("iconSource"),
                 QVariant(QUrl(u"image://symbol/arrow.down.circle.fill"_s)));

        // Creator opens its host, from its row and from the tray.
        const QUrl bundle = *fixture.director().path;
        harness.click(harness.item(director, u"openButton"_s));
        harness.click(harness.item(creator, u"openButton"_s));
        triggerTrayItem(harness, u"Open Vantor Creator"_s);
        QCOMPARE(fixture.workspace->opened, QList<QUrl>({bundle, bundle, bundle}));
        harness.click(harness.item(director, u"revealButton"_s));
        QCOMPARE(fixture.workspace->revealed, QList<QUrl>{bundle});

        // During the update the state is checking, and the button is gone.
        harness.click(harness.item(director, u"updateButton"_s));
        QTRY_COMPARE(fixture.updater->prepare.pendingCount(), 1);
        director = applicationRow(harness, u"Vantor Director"_s);
        QCOMPARE(textOf(harness.find(director, u"stateBadge"_s)), u"Checking"_s);
        QCOMPARE(rowButtons(harness, director), QStringList({u"Open"_s, u"Reveal in Finder"_s}));
        // Its download shows in the row and the tray; the row's Cancel reaches it.
        fixture.updater->control.report(120'000'000, 300'000'000);
        QTRY_COMPARE(textOf(harness.find(director, u"transferText"_s)),
                     u"120 MB of 300 MB — Calculating…"_s);
        QVERIFY(trayLines(harness).contains(u"Updating Vantor Director — 40 % (disabled)"_s));
        QQuickItem* cancel = harness.item(director, u"cancelTransferButton"_s);
        QCOMPARE(accessible(cancel, "name").toString(), u"Cancel the Vantor Director update"_s);
        harness.click(cancel);
        QVERIFY(fixture.updater->control.isCancelled());
        // The update ends, so that no flow is left waiting when the test does.
        fixture.updater->prepare.fail(LaunchError::url(LaunchError::cancelled));
        QTRY_VERIFY(!harness.store().updateFlow().updatingAppID());
    }

    void missingDirectorShowsAsSuchAndIsLocatedThroughTheFolderPanel() {
        StoreFixture fixture;
        fixture.answerStartUp({fixture.missingDirector(), fixture.creator()});
        ViewHarness harness(fixture);
        QQuickItem* director = applicationRow(harness, u"Vantor Director"_s);
        QCOMPARE(
            harness.item(u"sidebarApp-Vantor Director"_s)->property("accessibleName").toString(),
            u"Vantor Director, not installed"_s);
        QCOMPARE(textOf(harness.find(director, u"statusText"_s)), u"Not installed"_s);
        QCOMPARE(rowButtons(harness, director), QStringList{u"Locate app\u2026"_s});
        QCOMPARE(rowButtons(harness, applicationRow(harness, u"Vantor Creator"_s)), QStringList());
        const QStringList lines = trayLines(harness);
        QVERIFY2(lines.contains(u"All apps are up to date (disabled)"_s),
                 qPrintable(lines.join(u'|')));
        QVERIFY(lines.contains(u"Open Vantor Director (disabled)"_s));
        QCOMPARE(harness.tray()->property("panel").value<QObject*>()->property("iconSource"),
                 QVariant(QUrl(u"image://symbol/play.square.stack"_s)));

        // Cancelled: nothing changes and nothing is said.
        harness.click(harness.item(director, u"locateButton"_s));
        QTRY_VERIFY(shownFolderPanel());
        QCOMPARE(harness.locationChooser().title(), u"Locate Vantor Director"_s);
        QQuickItem* message = harness.item(u"locationMessage"_s);
        QVERIFY(isShown(message));
        QCOMPARE(
            textOf(message->childItems().constFirst()),
            u"Select the Vantor Director application. Its bundle identifier will be verified."_s);
        shownFolderPanel()->reject();
        QTRY_VERIFY(!harness.locationChooser().choosing());
        QVERIFY(!isShown(message));
        QCOMPARE(harness.store().message(), std::nullopt);

        // A folder that is not an application keeps the panel open inside it.
        const QUrl bundle =
            writeBundle(fixture.folder.path(), u"Vantor Director.app"_s,
                        {fixture.director().bundleIdentifier, u"2.5.0"_s, u"2500"_s});
        harness.click(harness.item(director, u"locateButton"_s));
        QTRY_VERIFY(shownFolderPanel());
        acceptFolder(shownFolderPanel(), fixture.folder.path());
        QTRY_VERIFY(shownFolderPanel());
        QCOMPARE(shownFolderPanel()->directory().absolutePath(), fixture.folder.path());
        QVERIFY(harness.locationChooser().choosing());

        acceptFolder(shownFolderPanel(), bundle.toLocalFile());
        QTRY_COMPARE(
            textOf(harness.find(applicationRow(harness, u"Vantor Director"_s), u"statusText"_s)),
            u"Installed 2.5.0 (2500)"_s);
        QCOMPARE(harness.store().apps().constFirst().path, std::optional(bundle));
    }

    void accountAreaShowsTheSignedOutInvitationOrTheSyncState() {
        {
            // Sign in needs all three endpoints.
            LaunchConfiguration configuration = LaunchConfiguration::production();
            configuration.authenticationStartURL.reset();
            for (const bool complete : {true, false}) {
                StoreFixture fixture(complete ? LaunchConfiguration::production() : configuration);
                fixture.answerStartUp({fixture.director(), fixture.creator()});
                ViewHarness harness(fixture);
                QTRY_COMPARE(fixture.discovery->discover.callCount(), 1);
                QVERIFY(isShown(harness.item(u"signedOutAccount"_s)));
                QVERIFY(!isShown(harness.item(u"signedInAccount"_s)));
                QCOMPARE(harness.item(u"signInButton"_s)->isEnabled(), complete);
            }
        }

        StoreFixture fixture;
        fixture.answerStartUp({fixture.director(), fixture.creator()});
        fixture.snapshotCache->stored = LaunchAccountSnapshot{
            1, WebsiteAccount{u"customer-1"_s, u"Ana Example"_s, u"ana@example.com"_s},
            QDateTime::fromString(u"2026-10-26T10:00:00Z"_s, Qt::ISODate)};
        fixture.accountProvider->refreshCalls.holdCalls();
        ViewHarness harness(fixture);
        QTRY_COMPARE(fixture.accountProvider->refreshCalls.pendingCount(), 1);
        QQuickItem* status = harness.item(u"syncStatus"_s);
        QVERIFY(isShown(harness.item(u"signedInAccount"_s)));
        QCOMPARE(textOf(harness.item(u"accountName"_s)), u"Ana Example"_s);
        QCOMPARE(textOf(status), u"Syncing\u2026"_s);
        QVERIFY(!harness.item(u"syncButton"_s)->isEnabled());
        QVERIFY(harness.item(u"signOutButton"_s)->isEnabled());
        QVERIFY(!isShown(harness.item(u"cachedDataCaption"_s)));

        // Another account answers: the refusal, with the cached-data caption below it.
        fixture.accountProvider->refreshCalls.complete(
            WebsiteAccount{u"customer-2"_s, u"Other"_s, u"other@example.com"_s});
        QTRY_COMPARE(
            textOf(status),
            u"Sync unavailable: The account changed. Sign out before signing in to another account."_s);
        QVERIFY(isShown(harness.item(u"cachedDataCaption"_s)));
        QVERIFY(harness.item(u"syncButton"_s)->isEnabled());
    }

    void switchingTheTrayOffHidesItAndLastsAcrossRestarts() {
        StoreFixture fixture;
        {
            ViewHarness harness(fixture, true);
            QVERIFY(harness.tray()->property("visible").toBool());
            harness.settingsWindow()->show();
            QVERIFY(QTest::qWaitForWindowExposed(harness.settingsWindow()));
            auto* toggle = qobject_cast<QQuickItem*>(
                harness.find(harness.settingsWindow()->contentItem(), u"menuBarSwitch"_s));
            QVERIFY(toggle->property("checked").toBool());
            harness.click(toggle);
            QVERIFY(!harness.launcher().showsMenuBarItem());
            QVERIFY(!harness.tray()->property("visible").toBool());
        }
        ViewHarness restarted(fixture, true);
        QVERIFY(!restarted.tray()->property("visible").toBool());
        QVERIFY(!restarted.find(restarted.settingsWindow()->contentItem(), u"menuBarSwitch"_s)
                     ->property("checked")
                     .toBool());
    }

    void helpAndContentPacksSayWhatThisBuildLacks() {
        LaunchConfiguration configuration = LaunchConfiguration::production();
        configuration.catalogueURL.reset();
        StoreFixture fixture(configuration);
        fixture.answerStartUp({fixture.director(), fixture.creator()});
        ViewHarness harness(fixture);
        harness.store().setSelection(LaunchSection::help);
        QStringList rows;
        for (QObject* row :
             harness.findAll(harness.mainWindow()->contentItem(), u"missingIntegration"_s)) {
            if (isShown(row))
                rows.append(textOf(row));
        }
        QCOMPARE(rows, QStringList{u"Public Content Pack catalogue contract"_s});
        QVERIFY(isShown(harness.item(u"integrationsMissing"_s)));
        QVERIFY(!isShown(harness.item(u"integrationsConfigured"_s)));
        // Content Packs says so instead of showing an empty list.
        QTRY_COMPARE(fixture.discovery->discover.callCount(), 1);
        harness.store().setSelection(LaunchSection::packs);
        QQuickItem* unavailable = harness.item(u"catalogueUnavailable"_s);
        QVERIFY(isShown(unavailable));
        QCOMPARE(textOf(harness.item(unavailable, u"unavailableTitle"_s)),
                 u"Catalogue unavailable"_s);
        QVERIFY(!isShown(harness.item(u"packList"_s)));

        StoreFixture completeFixture;
        ViewHarness complete(completeFixture, true);
        complete.store().setSelection(LaunchSection::help);
        QVERIFY(isShown(complete.item(u"integrationsConfigured"_s)));
        QVERIFY(!isShown(complete.item(u"integrationsMissing"_s)));
        QVERIFY(isShown(complete.item(u"supportLink"_s)));
        QCOMPARE(complete.item(u"versionValue"_s)->property("value").toString(),
                 QStringLiteral(LAUNCHER_VERSION));
        QCOMPARE(LauncherInfo::shownValue(u" "_s), u"Not provided"_s);
    }

    void runningUpdatePromptIsAnsweredEitherWay() {
        StoreFixture fixture;
        InstalledApp director = fixture.director();
        director.isRunning = true;
        fixture.answerStartUp({director, fixture.creator()});
        fixture.releaseChecker->latest.answerWith(
            AvailableApplicationRelease{u"2.5.0"_s, std::nullopt, std::nullopt});
        fixture.workspace->running.append({77, director.bundleIdentifier, *director.path});
        ViewHarness harness(fixture);
        QTRY_COMPARE(harness.store().updateCount(), 1);
        QObject* alert = harness.find(harness.mainWindow()->contentItem(), u"runningUpdateAlert"_s);
        QVERIFY(alert);
        QVERIFY(!alert->property("visible").toBool());

        harness.store().updateFlow().updateApplication(harness.store().apps().constFirst());
        QTRY_VERIFY(alert->property("opened").toBool());
        QCOMPARE(alert->property("title").toString(), u"Vantor Director is open"_s);
        harness.click(qobject_cast<QQuickItem*>(harness.find(alert, u"remindLaterButton"_s)));
        QTRY_VERIFY(!alert->property("visible").toBool());
        QCOMPARE(harness.store().updateFlow().runningUpdatePromptAppID(), std::nullopt);
        QVERIFY(fixture.workspace->terminated.isEmpty());

        harness.store().updateFlow().updateApplication(harness.store().apps().constFirst());
        QTRY_VERIFY(alert->property("opened").toBool());
        harness.click(qobject_cast<QQuickItem*>(harness.find(alert, u"updateNowButton"_s)));
        QTRY_COMPARE(fixture.workspace->terminated.size(), 1);
        QTRY_VERIFY(!alert->property("visible").toBool());
        QCOMPARE(harness.store().updateFlow().runningUpdatePromptAppID(), std::nullopt);
    }

    // The sheet of the main window while a sign-in continues in the browser.
    void browserSignInSheetShowsWhileTheBrowserWaitsAndCancels() {
        StoreFixture fixture;
        const auto browser = std::make_shared<WaitingBrowser>();
        fixture.browserSignIn = browser;
        fixture.answerStartUp();
        ViewHarness harness(fixture);
        QObject* sheet = harness.find(harness.mainWindow()->contentItem(), u"browserSignInSheet"_s);
        QVERIFY(sheet);
        QVERIFY(!sheet->property("visible").toBool());

        browser->setWaiting(true);
        QTRY_VERIFY(sheet->property("opened").toBool());
        QCOMPARE(sheet->property("title").toString(), u"Continue in your browser"_s);
        harness.click(qobject_cast<QQuickItem*>(harness.find(sheet, u"cancelSignInButton"_s)));
        QTRY_VERIFY(!sheet->property("visible").toBool());
        QCOMPARE(browser->cancellations, 1);

        // A sign-in that ends by itself closes the sheet; nothing more is cancelled.
        browser->setWaiting(true);
        QTRY_VERIFY(sheet->property("opened").toBool());
        browser->setWaiting(false);
        QTRY_VERIFY(!sheet->property("visible").toBool());
        QCOMPARE(browser->cancellations, 1);

        // Switching to demo mode ends a sign-in that waits.
        browser->setWaiting(true);
        QTRY_VERIFY(sheet->property("opened").toBool());
        harness.store().setDemoEnabled(true);
        QVERIFY(finishes(harness.store().start()));
        QTRY_VERIFY(!sheet->property("visible").toBool());
        QCOMPARE(browser->cancellations, 2);
    }
};

QTEST_MAIN(ViewsTest)
#include "ViewsTest.moc"
