#include "AppDetailProfile.h"
#include "ArtworkCache.h"
#include "BundleBuilder.h"
#include "HttpsTestServer.h"
#include "LauncherInfo.h"
#include "ViewHarness.h"
#include "foundation/BuildSettings.h"

#include <QApplication>
#include <QFileDialog>
#include <QImage>
#include <QQmlListReference>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

Q_IMPORT_QML_PLUGIN(Vantor_LaunchPlugin)

using namespace Qt::StringLiterals;
using Launch::LaunchSection;
using Launch::PackInstallation;

namespace {

QList<QObject*> visibleTrayItems(const ViewHarness& harness) {
    QQmlListReference items(harness.tray()->property("menu").value<QObject*>(), "items");
    QList<QObject*> visible;
    for (qsizetype i = 0; i < items.count(); ++i) {
        if (items.at(i)->property("visible").toBool())
            visible.append(items.at(i));
    }
    return visible;
}

// The texts of the tray menu as the user sees them, separators as "—".
QStringList trayLines(const ViewHarness& harness) {
    QStringList lines;
    for (QObject* item : visibleTrayItems(harness)) {
        const bool enabled = item->property("enabled").toBool();
        lines.append(item->property("separator").toBool()
                         ? u"—"_s
                         : item->property("text").toString() +
                               (enabled ? u""_s : u" (disabled)"_s));
    }
    return lines;
}

void triggerTrayItem(const ViewHarness& harness, const QString& text) {
    for (QObject* item : visibleTrayItems(harness)) {
        if (item->property("text").toString() == text) {
            QMetaObject::invokeMethod(item, "triggered");
            return;
        }
    }
    QFAIL(qPrintable(u"no tray item "_s + text));
}

QVariant trayIcon(const ViewHarness& harness) {
    return harness.tray()->property("panel").value<QObject*>()->property("iconSource");
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

ContentPack packWithArtwork(const QString& id, std::optional<QUrl> artwork) {
    ContentPack pack = makePack(id, id, u"Summary of "_s + id);
    pack.artworkURL = std::move(artwork);
    return pack;
}

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
        harness.mainWindow()->resize(harness.mainWindow()->minimumSize());
        QQuickItem* banner = harness.item(u"messageBanner"_s);
        QQuickItem* text = harness.item(banner, u"messageText"_s);
        QQuickItem* dismiss = harness.item(u"dismissButton"_s);
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

        harness.click(dismiss);
        QCOMPARE(harness.store().message(), std::nullopt);
        QVERIFY(!banner->isVisible());

        // In any section. For the keyboard and assistive tools, one element: the message, which
        // Space dismisses.
        harness.store().setSelection(LaunchSection::help);
        harness.store().setMessage(u"Third outcome."_s);
        QVERIFY(banner->isVisible());
        QCOMPARE(accessible(banner, "name").toString(), u"Third outcome."_s);
        QVERIFY(accessible(dismiss, "ignored").toBool());
        banner->forceActiveFocus();
        harness.press(Qt::Key_Space);
        QCOMPARE(harness.store().message(), std::nullopt);

        // A long message wraps inside the banner, the dismiss button after it at the banner's end.
        harness.store().setMessage(
            u"Vantor Director could not be closed automatically. Quit it normally, then try the update again. Website account refresh was unavailable. Your installed applications were not changed."_s);
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
        QVERIFY(harness.activate());
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
        harness.press(Qt::Key_2, Qt::ControlModifier);
        QCOMPARE(harness.store().selection(), LaunchSection::packs);
        QCOMPARE(highlighted(), QStringList{u"sidebar-Content Packs"_s});

        // Another screen (here the store directly, as the overview's "View all packs" does).
        harness.store().setSelection(LaunchSection::overview);
        QCOMPARE(highlighted(), QStringList{u"sidebar-Overview"_s});
        QVERIFY(isShown(harness.item(u"overviewView"_s)));
        QVERIFY(!isShown(harness.item(u"helpView"_s)));

        // The "Check for Updates" command runs the launcher's own check.
        harness.press(Qt::Key_R, Qt::ControlModifier);
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
        QCOMPARE(trayIcon(harness), QVariant(QUrl(u"image://symbol/arrow.down.circle.fill"_s)));

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
        QCOMPARE(rowButtons(harness, director), QStringList{u"Locate app\u2026"_s});
        const QStringList lines = trayLines(harness);
        QVERIFY2(lines.contains(u"All apps are up to date (disabled)"_s),
                 qPrintable(lines.join(u'|')));
        QVERIFY(lines.contains(u"Open Vantor Director (disabled)"_s));
        QCOMPARE(trayIcon(harness), QVariant(QUrl(u"image://symbol/play.square.stack"_s)));

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

    // Sign-in needs the website's endpoints and Content Packs its catalogue: without them the
    // views say so instead of offering what cannot work.
    void helpAndTheViewsFollowWhatThisBuildProvides_data() {
        QTest::addColumn<bool>("complete");
        QTest::newRow("complete") << true;
        QTest::newRow("without sign-in and catalogue") << false;
    }

    void helpAndTheViewsFollowWhatThisBuildProvides() {
        QFETCH(bool, complete);
        LaunchConfiguration configuration = LaunchConfiguration::production();
        if (!complete) {
            configuration.authenticationStartURL.reset();
            configuration.catalogueURL.reset();
        }
        StoreFixture fixture(configuration);
        fixture.answerStartUp({fixture.director(), fixture.creator()}, {makePack(u"a"_s, u"A"_s)});
        ViewHarness harness(fixture);
        QTRY_COMPARE(fixture.discovery->discover.callCount(), 1);
        QVERIFY(isShown(harness.item(u"signedOutAccount"_s)));
        QVERIFY(!isShown(harness.item(u"signedInAccount"_s)));
        QCOMPARE(harness.item(u"signInButton"_s)->isEnabled(), complete);

        harness.store().setSelection(LaunchSection::help);
        QStringList rows;
        for (QObject* row :
             harness.findAll(harness.mainWindow()->contentItem(), u"missingIntegration"_s)) {
            if (isShown(row))
                rows.append(textOf(row));
        }
        QCOMPARE(rows, complete ? QStringList()
                                : QStringList({u"Website authentication start endpoint and "
                                               u"callback contract"_s,
                                               u"Public Content Pack catalogue contract"_s}));
        QCOMPARE(isShown(harness.item(u"integrationsMissing"_s)), !complete);
        QCOMPARE(isShown(harness.item(u"integrationsConfigured"_s)), complete);
        QVERIFY(isShown(harness.item(u"supportLink"_s)));
        QCOMPARE(harness.item(u"versionValue"_s)->property("value").toString(),
                 QStringLiteral(LAUNCHER_VERSION));
        QCOMPARE(LauncherInfo::shownValue(u" "_s), u"Not provided"_s); // a blank build setting

        harness.store().setSelection(LaunchSection::packs);
        QQuickItem* unavailable = harness.item(u"catalogueUnavailable"_s);
        QTRY_COMPARE(isShown(unavailable), !complete);
        QCOMPARE(textOf(harness.item(unavailable, u"unavailableTitle"_s)),
                 u"Catalogue unavailable"_s);
        QCOMPARE(isShown(harness.item(u"packList"_s)), complete);
    }

    void accountAreaShowsTheSyncStateOfTheSignedInAccount() {
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
            QQuickItem* toggle =
                harness.item(harness.settingsWindow()->contentItem(), u"menuBarSwitch"_s);
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
        QObject* alert = harness.find(u"runningUpdateAlert"_s);
        QVERIFY(alert && !alert->property("visible").toBool());

        for (const QString& answer : {u"remindLaterButton"_s, u"updateNowButton"_s}) {
            harness.store().updateFlow().updateApplication(harness.store().apps().constFirst());
            QTRY_VERIFY(isOpen(alert));
            QCOMPARE(alert->property("title").toString(), u"Vantor Director is open"_s);
            harness.click(harness.item(alert, answer));
            QTRY_VERIFY(!alert->property("visible").toBool());
            QCOMPARE(harness.store().updateFlow().runningUpdatePromptAppID(), std::nullopt);
            // Only "Update Now" closes the running Director.
            QTRY_COMPARE(fixture.workspace->terminated.size(),
                         answer == u"updateNowButton"_s ? 1 : 0);
        }
    }

    // The sheet of the main window while a sign-in continues in the browser.
    void browserSignInSheetShowsWhileTheBrowserWaitsAndCancels() {
        StoreFixture fixture;
        const auto browser = std::make_shared<WaitingBrowser>();
        fixture.browserSignIn = browser;
        fixture.answerStartUp();
        ViewHarness harness(fixture);
        QObject* sheet = harness.find(u"browserSignInSheet"_s);
        QVERIFY(sheet && !sheet->property("visible").toBool());

        browser->setWaiting(true);
        QTRY_VERIFY(isOpen(sheet));
        QCOMPARE(sheet->property("title").toString(), u"Continue in your browser"_s);
        harness.click(harness.item(sheet, u"cancelSignInButton"_s));
        QTRY_VERIFY(!sheet->property("visible").toBool());
        QCOMPARE(browser->cancellations, 1);

        // A sign-in that ends by itself closes the sheet; nothing more is cancelled.
        browser->setWaiting(true);
        QTRY_VERIFY(isOpen(sheet));
        browser->setWaiting(false);
        QTRY_VERIFY(!sheet->property("visible").toBool());
        QCOMPARE(browser->cancellations, 1);

        // Switching to demo mode ends a sign-in that waits.
        browser->setWaiting(true);
        QTRY_VERIFY(isOpen(sheet));
        harness.store().setDemoEnabled(true);
        QVERIFY(finishes(harness.store().start()));
        QTRY_VERIFY(!sheet->property("visible").toBool());
        QCOMPARE(browser->cancellations, 2);
    }

    void logoButtonOpensTheSheetOfItsRowAndTheKeysCloseEachSheet() {
        StoreFixture fixture;
        ViewHarness harness(fixture, true);
        QQuickItem* row = applicationRow(harness, u"Vantor Creator"_s);
        QVERIFY(row);
        QQuickItem* logo = harness.item(row, u"logoButton"_s);
        QCOMPARE(accessible(logo, "name").toString(), u"Show details for Vantor Creator"_s);
        QCOMPARE(accessible(harness.item(row, u"logoImage"_s), "name").toString(),
                 u"Vantor Creator logo"_s);

        QObject* panel = harness.item(u"applicationPanel"_s);
        QObject* sheet = harness.find(panel, u"appDetailView"_s);
        QVERIFY(!isOpen(sheet));
        harness.click(logo);
        QTRY_VERIFY(isOpen(sheet));
        // A sheet's own items, which the window shows in its overlay.
        QQuickItem* content = sheet->property("contentItem").value<QQuickItem*>();
        QCOMPARE(textOf(harness.find(content, u"detailName"_s)), u"Vantor Creator"_s);
        QCOMPARE(textOf(harness.find(content, u"detailTagline"_s)),
                 AppDetailProfiles::creator().tagline);
        QCOMPARE(textOf(harness.find(content, u"detailOpenButton"_s)), u"Open in VD"_s);

        // The thumbnails are read by their position; the selected one says so.
        QList<QObject*> thumbnails = harness.findAll(content, u"thumbnail"_s);
        std::sort(thumbnails.begin(), thumbnails.end(), [](QObject* a, QObject* b) {
            return a->property("index").toInt() < b->property("index").toInt();
        });
        QCOMPARE(thumbnails.size(), AppDetailProfiles::creator().screenshotNames.size());
        QCOMPARE(accessible(thumbnails[2], "name").toString(), u"Show screenshot 3"_s);
        QVERIFY(accessible(thumbnails[0], "selected").toBool());
        harness.click(qobject_cast<QQuickItem*>(thumbnails[2]));
        QVERIFY(accessible(thumbnails[2], "selected").toBool());
        QVERIFY(!accessible(thumbnails[0], "selected").toBool());
        QObject* large = harness.find(content, u"selectedScreenshot"_s);
        QCOMPARE(large->property("filename").toString(),
                 AppDetailProfiles::creator().screenshotNames[2]);
        QTRY_VERIFY(large->property("loaded").toBool());

        // Return closes the full changelog, Escape then the detail sheet.
        // Below the fold: pressed without scrolling to it.
        QMetaObject::invokeMethod(harness.item(content, u"fullChangelogButton"_s), "clicked");
        QObject* changelog = harness.find(panel, u"fullChangelogView"_s);
        QTRY_VERIFY(isOpen(changelog));
        harness.press(Qt::Key_Return);
        QTRY_VERIFY(!isOpen(changelog));
        QVERIFY(isOpen(sheet));
        harness.press(Qt::Key_Escape);
        QTRY_VERIFY(!isOpen(sheet));

        // The Director's row presents the Director.
        harness.click(
            harness.item(harness.item(u"applicationRow-Vantor Director"_s), u"logoButton"_s));
        QTRY_VERIFY(isOpen(sheet));
        QCOMPARE(textOf(harness.find(content, u"detailName"_s)), u"Vantor Director"_s);
        QCOMPARE(textOf(harness.find(content, u"detailOpenButton"_s)), u"Open"_s);
        QCOMPARE(large->property("filename").toString(),
                 AppDetailProfiles::director().screenshotNames[0]);
    }

    void overviewShowsATileForEachPackAndTheOpenedPackShowsItsInstallation() {
        StoreFixture fixture;
        const WebsiteAccount customer{u"cust-42"_s, u"Ana Example"_s, u"ana@example.com"_s};
        fixture.snapshotCache->stored = LaunchAccountSnapshot{1, customer, fixture.clock};
        fixture.answerStartUp(
            {fixture.director(), fixture.creator()},
            {makePack(u"a"_s, u"Alpine Light"_s), makePack(u"b"_s, u"Bay Evenings"_s)}, customer);
        ViewHarness harness(fixture);
        QTRY_COMPARE(harness.store().packs().size(), 2);
        QStringList tiles;
        for (QObject* object : ViewHarness::descendants(harness.item(u"contentPackSummary"_s))) {
            if (object->objectName().startsWith(u"packTile-"_s) && isShown(object))
                tiles.append(object->objectName());
        }
        QCOMPARE(tiles, QStringList({u"packTile-a"_s, u"packTile-b"_s}));

        harness.click(harness.item(u"packTile-b"_s));
        QCOMPARE(harness.store().selection(), LaunchSection::packs);
        QCOMPARE(harness.store().selectedPackID(), std::optional<QString>(u"b"_s));
        QTRY_COMPARE(textOf(harness.item(u"packName"_s)), u"Bay Evenings"_s);

        // Its installation shows in the detail and the list row, each with a Cancel named after
        // the pack; the detail's reaches the download.
        fixture.accountProvider->manifestCalls.answerWith(LaunchContentPackManifest{});
        fixture.installer->installCalls.holdCalls();
        harness.store().requestInstallPack(u"b"_s);
        QTRY_VERIFY(bool(fixture.installer->control.progress));
        fixture.installer->control.report(0, 20'000'000);
        QQuickItem* progress = harness.item(u"packProgress"_s);
        QTRY_COMPARE(textOf(harness.find(progress, u"transferText"_s)),
                     u"0 bytes of 20 MB — Calculating…"_s);
        QQuickItem* rowCancel =
            harness.item(harness.item(u"packRow-b"_s), u"cancelTransferButton"_s);
        QVERIFY(isShown(rowCancel));
        QCOMPARE(accessible(rowCancel, "name").toString(), u"Cancel installing Bay Evenings"_s);
        // From the list, Tab reaches the row's Cancel first.
        QVERIFY(harness.activate());
        harness.item(u"packListView"_s)->forceActiveFocus();
        harness.press(Qt::Key_Tab);
        QVERIFY(rowCancel->hasActiveFocus());
        QQuickItem* cancel = harness.item(progress, u"cancelTransferButton"_s);
        QCOMPARE(accessible(cancel, "name").toString(), u"Cancel installing Bay Evenings"_s);
        harness.click(cancel);
        QVERIFY(fixture.installer->control.isCancelled());
        fixture.installer->installCalls.fail(LaunchError::url(LaunchError::cancelled));
        QTRY_VERIFY(!isShown(harness.item(u"packProgress"_s)));
    }

    void packDetailOffersTheActionOfEachStateAndKeepsItsPackThroughAnEmptySearch() {
        StoreFixture fixture;
        ContentPack downloading = makePack(u"d"_s, u"Desert Dawn"_s, u"Warm dunes."_s, u"1.0"_s,
                                           PackInstallation::downloading);
        downloading.contentCount = 1200;
        fixture.answerStartUp(
            {fixture.director(), fixture.creator()},
            {downloading,
             makePack(u"f"_s, u"Forest Rain"_s, {}, std::nullopt, PackInstallation::failed),
             makePack(u"u"_s, u"Urban Glow"_s, {}, std::nullopt, PackInstallation::unavailable)});
        ViewHarness harness(fixture);
        QVERIFY(harness.activate());
        QTRY_COMPARE(harness.store().selectedPackID(), std::optional<QString>(u"d"_s));
        harness.store().setSelection(LaunchSection::packs);
        QQuickItem* action = harness.item(u"packActionButton"_s);

        QCOMPARE(textOf(action), u"Installing\u2026"_s);
        QVERIFY(isShown(harness.item(u"packBusy"_s)));
        QStringList facts;
        for (QObject* value : harness.findAll(harness.item(u"packDetail"_s), u"packFactValue"_s))
            facts.append(textOf(value));
        QCOMPARE(facts, QStringList({u"1.0"_s, QLocale().toString(1200)}));
        // The button stays enabled while installing; a second press starts nothing.
        const auto before = harness.store().message();
        harness.click(action);
        QCOMPARE(harness.store().message(), before);
        QCOMPARE(textOf(action), u"Installing\u2026"_s);

        // The list follows the arrow keys.
        harness.click(harness.item(u"packRow-d"_s));
        harness.press(Qt::Key_Down);
        QCOMPARE(harness.store().selectedPackID(), std::optional<QString>(u"f"_s));
        QCOMPARE(textOf(action), u"Install"_s);
        QVERIFY(!isShown(harness.item(u"packBusy"_s)));
        harness.press(Qt::Key_Down);
        harness.press(Qt::Key_Up);
        QCOMPARE(harness.store().selectedPackID(), std::optional<QString>(u"f"_s));

        // The find shortcut goes to the search; a search that matches nothing keeps the detail.
        harness.press(Qt::Key_F, Qt::ControlModifier);
        QTRY_VERIFY(harness.item(u"packSearch"_s)->hasActiveFocus());
        for (int i = 0; i < 3; ++i)
            harness.press(Qt::Key_Z);
        QCOMPARE(harness.store().searchText(), u"zzz"_s);
        QCOMPARE(harness.item(u"packListView"_s)->property("count").toInt(), 0);
        QCOMPARE(textOf(harness.item(u"packName"_s)), u"Forest Rain"_s);
        QVERIFY(!isShown(harness.item(u"noPackSelected"_s)));
    }

    // From the disk and from the website's hosts alike.
    void artworkShowsTheImageOrThePlaceholderForAMissingOrBrokenOne() {
        StoreFixture fixture;
        const QString good = fixture.folder.filePath(u"good.png"_s);
        QImage image(64, 32, QImage::Format_RGB32);
        image.fill(Qt::darkCyan);
        QVERIFY(image.save(good));
        const QString garbage = fixture.folder.filePath(u"garbage.png"_s);
        writeFile(garbage, "not an image at all");
        const QUrl missing = QUrl::fromLocalFile(fixture.folder.filePath(u"missing.png"_s));
        HttpsTestServer host;
        QFile goodFile(good);
        QVERIFY(goodFile.open(QIODevice::ReadOnly));
        host.reply(u"GET"_s, u"/art/good.png"_s, {200, goodFile.readAll(), "image/png"});
        ArtworkCache::shared().setNetworkAccess(host.makeNetworkAccess());
        fixture.answerStartUp({fixture.director(), fixture.creator()},
                              {packWithArtwork(u"good"_s, QUrl::fromLocalFile(good)),
                               packWithArtwork(u"garbage"_s, QUrl::fromLocalFile(garbage)),
                               packWithArtwork(u"missing"_s, missing),
                               packWithArtwork(u"none"_s, std::nullopt),
                               packWithArtwork(u"hosted"_s, host.url(u"/art/good.png"_s)),
                               packWithArtwork(u"gone"_s, host.url(u"/art/gone.png"_s))});
        ViewHarness harness(fixture);
        QTRY_COMPARE(harness.store().packs().size(), 6);
        harness.store().setSelection(LaunchSection::packs);
        QQuickItem* artwork = harness.item(u"detailArtwork"_s);
        QQuickItem* placeholder = harness.item(artwork, u"artworkPlaceholder"_s);
        QCOMPARE(accessible(artwork, "name").toString(), u"good collection artwork"_s);
        QTRY_VERIFY(artwork->property("loaded").toBool());
        QVERIFY(!placeholder->isVisible());

        harness.store().selectPack(u"hosted"_s);
        QTRY_VERIFY(artwork->property("loaded").toBool());
        QVERIFY(!placeholder->isVisible());

        for (const qsizetype index : {1, 2, 3, 5}) {
            const ContentPack pack = harness.store().packs()[index];
            harness.store().selectPack(pack.id);
            if (pack.artworkURL)
                QTRY_VERIFY(ArtworkCache::shared().hasFailed(*pack.artworkURL));
            QVERIFY2(!artwork->property("loaded").toBool(), qPrintable(pack.id));
            QVERIFY(placeholder->isVisible());
        }
        // Back to the first: from the cache, at once.
        harness.store().selectPack(u"good"_s);
        QVERIFY(artwork->property("loaded").toBool());
    }
};

QTEST_MAIN(ViewsTest)
#include "ViewsTest.moc"
