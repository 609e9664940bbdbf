#include "AppDetailProfile.h"
#include "ArtworkCache.h"
#include "BundleBuilder.h"
#include "ViewHarness.h"

#include <QImage>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

Q_IMPORT_QML_PLUGIN(Vantor_LaunchPlugin)

using namespace Qt::StringLiterals;
using Launch::LaunchSection;
using Launch::PackInstallation;

namespace {

// A sheet's own items, which the window shows in its overlay.
QQuickItem* sheetContent(QObject* sheet) {
    return sheet ? sheet->property("contentItem").value<QQuickItem*>() : nullptr;
}

bool isOpen(QObject* sheet) {
    return sheet && sheet->property("opened").toBool();
}

ContentPack packWithArtwork(const QString& id, std::optional<QUrl> artwork) {
    ContentPack pack = makePack(id, id, u"Summary of "_s + id);
    pack.artworkURL = std::move(artwork);
    return pack;
}

} // namespace

// The detail sheet, the overview's pack tiles and the Content Packs section on the real windows.
class PackAndDetailViewsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void logoButtonOpensTheSheetOfItsRowAndTheKeysCloseEachSheet() {
        StoreFixture fixture;
        ViewHarness harness(fixture, true);
        QQuickItem* row = nullptr;
        QTRY_VERIFY((row = harness.item(u"applicationRow-Vantor Creator"_s)));
        QQuickItem* logo = harness.item(row, u"logoButton"_s);
        QCOMPARE(accessible(logo, "name").toString(), u"Show details for Vantor Creator"_s);
        QCOMPARE(accessible(harness.item(row, u"logoImage"_s), "name").toString(),
                 u"Vantor Creator logo"_s);

        QObject* panel = harness.item(u"applicationPanel"_s);
        QObject* sheet = harness.find(panel, u"appDetailView"_s);
        QVERIFY(!isOpen(sheet));
        harness.click(logo);
        QTRY_VERIFY(isOpen(sheet));
        QQuickItem* content = sheetContent(sheet);
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
        QTest::keyClick(harness.mainWindow(), Qt::Key_Return);
        QTRY_VERIFY(!isOpen(changelog));
        QVERIFY(isOpen(sheet));
        QTest::keyClick(harness.mainWindow(), Qt::Key_Escape);
        QTRY_VERIFY(!isOpen(sheet));
        QVERIFY(panel->property("presentedApp").isNull() ||
                !panel->property("presentedApp").isValid());

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
        harness.mainWindow()->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(harness.mainWindow()));
        harness.item(u"packListView"_s)->forceActiveFocus();
        QTest::keyClick(harness.mainWindow(), Qt::Key_Tab);
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
        harness.mainWindow()->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(harness.mainWindow()));
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
        QTest::keyClick(harness.mainWindow(), Qt::Key_Down);
        QCOMPARE(harness.store().selectedPackID(), std::optional<QString>(u"f"_s));
        QCOMPARE(textOf(action), u"Install"_s);
        QVERIFY(!isShown(harness.item(u"packBusy"_s)));
        QTest::keyClick(harness.mainWindow(), Qt::Key_Down);
        QCOMPARE(harness.store().selectedPackID(), std::optional<QString>(u"u"_s));
        QCOMPARE(textOf(action), u"Install"_s);
        QTest::keyClick(harness.mainWindow(), Qt::Key_Up);
        QCOMPARE(harness.store().selectedPackID(), std::optional<QString>(u"f"_s));

        // The find shortcut goes to the search; a search that matches nothing keeps the detail.
        QTest::keyClick(harness.mainWindow(), Qt::Key_F, Qt::ControlModifier);
        QTRY_VERIFY(harness.item(u"packSearch"_s)->hasActiveFocus());
        for (int i = 0; i < 3; ++i)
            QTest::keyClick(harness.mainWindow(), Qt::Key_Z);
        QCOMPARE(harness.store().searchText(), u"zzz"_s);
        QCOMPARE(harness.item(u"packListView"_s)->property("count").toInt(), 0);
        QCOMPARE(textOf(harness.item(u"packName"_s)), u"Forest Rain"_s);
        QVERIFY(!isShown(harness.item(u"noPackSelected"_s)));
    }

    void artworkShowsTheImageOrThePlaceholderForAMissingOrBrokenOne() {
        StoreFixture fixture;
        const QString good = fixture.folder.filePath(u"good.png"_s);
        QImage image(64, 32, QImage::Format_RGB32);
        image.fill(Qt::darkCyan);
        QVERIFY(image.save(good));
        const QString garbage = fixture.folder.filePath(u"garbage.png"_s);
        writeFile(garbage, "not an image at all");
        const QUrl missing = QUrl::fromLocalFile(fixture.folder.filePath(u"missing.png"_s));
        fixture.answerStartUp({fixture.director(), fixture.creator()},
                              {packWithArtwork(u"good"_s, QUrl::fromLocalFile(good)),
                               packWithArtwork(u"garbage"_s, QUrl::fromLocalFile(garbage)),
                               packWithArtwork(u"missing"_s, missing),
                               packWithArtwork(u"none"_s, std::nullopt)});
        ViewHarness harness(fixture);
        QTRY_COMPARE(harness.store().packs().size(), 4);
        harness.store().setSelection(LaunchSection::packs);
        QQuickItem* artwork = harness.item(u"detailArtwork"_s);
        QQuickItem* placeholder = harness.item(artwork, u"artworkPlaceholder"_s);
        QCOMPARE(accessible(artwork, "name").toString(), u"good collection artwork"_s);
        QTRY_VERIFY(artwork->property("loaded").toBool());
        QVERIFY(!placeholder->isVisible());

        for (const QString& id : {u"garbage"_s, u"missing"_s}) {
            harness.store().selectPack(id);
            const QUrl url = harness.store().packs()[id == u"garbage"_s ? 1 : 2].artworkURL.value();
            QTRY_VERIFY(ArtworkCache::shared().hasFailed(url));
            QVERIFY2(!artwork->property("loaded").toBool(), qPrintable(id));
            QVERIFY(placeholder->isVisible());
        }
        harness.store().selectPack(u"none"_s);
        QVERIFY(!artwork->property("loaded").toBool());
        QVERIFY(placeholder->isVisible());
        // Back to the first: from the cache, at once.
        harness.store().selectPack(u"good"_s);
        QVERIFY(artwork->property("loaded").toBool());
    }
};

QTEST_MAIN(PackAndDetailViewsTest)
#include "PackAndDetailViewsTest.moc"
