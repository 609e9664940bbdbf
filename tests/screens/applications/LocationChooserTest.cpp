#include "PanelLocationChooser.h"
#include "StoreDoubles.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

ApplicationLocationChooser::Request locateDirector() {
    return {u"Locate Vantor Director"_s, u"Select the Vantor Director application."_s,
            u"Use This Application"_s};
}

// The answer of a request that has finished.
std::optional<QUrl> answer(QCoro::Task<std::optional<QUrl>>& request) {
    return QCoro::waitFor(std::move(request));
}

QUrl local(const QString& path) {
    return QUrl::fromLocalFile(path);
}

} // namespace

// The chooser between the store and the folder panel: what the panel is asked to show, and which
// of its answers end the request.
class LocationChooserTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void answersWithTheApplicationBundleTheUserAccepts() {
        PanelLocationChooser chooser;
        QSignalSpy shown(&chooser, &PanelLocationChooser::panelRequested);
        auto request = chooser.chooseApplication(locateDirector());
        QCOMPARE(shown.count(), 1);
        QVERIFY(chooser.choosing());
        QCOMPARE(chooser.title(), u"Locate Vantor Director"_s);
        QCOMPARE(chooser.prompt(), u"Use This Application"_s);
        QVERIFY(chooser.folder().isLocalFile());

        chooser.accept(local(u"/opt/Stage/Vantor Director.APP/"_s));
        QVERIFY(finishes(request));
        QCOMPARE(answer(request), std::optional(local(u"/opt/Stage/Vantor Director.APP"_s)));
        QVERIFY(!chooser.choosing());
        QCOMPARE(chooser.title(), QString());
    }

    void anotherFolderOpensThePanelInsideItAndCancelGivesNothing() {
        PanelLocationChooser chooser;
        QSignalSpy shown(&chooser, &PanelLocationChooser::panelRequested);
        auto request = chooser.chooseApplication(locateDirector());

        chooser.accept(local(u"/opt/Stage"_s));
        QVERIFY(chooser.choosing());
        QCOMPARE(chooser.folder(), local(u"/opt/Stage"_s));
        QCOMPARE(chooser.title(), u"Locate Vantor Director"_s);
        // Shown again only after the panel has closed from the answer.
        QCOMPARE(shown.count(), 1);
        QTRY_COMPARE(shown.count(), 2);
        QVERIFY(!request.isReady());

        chooser.cancel();
        QVERIFY(finishes(request));
        QCOMPARE(answer(request), std::nullopt);
        QVERIFY(!chooser.choosing());
    }

    void panelDoesNotReopenForARequestThatEndedMeanwhile() {
        PanelLocationChooser chooser;
        QSignalSpy shown(&chooser, &PanelLocationChooser::panelRequested);
        auto request = chooser.chooseApplication(locateDirector());
        chooser.accept(local(u"/opt/Stage"_s));
        chooser.cancel();
        QVERIFY(finishes(request));
        QTest::qWait(20);
        QCOMPARE(shown.count(), 1);
    }

    void aNewerRequestCancelsTheUnansweredOne() {
        PanelLocationChooser chooser;
        auto first = chooser.chooseApplication(locateDirector());
        auto second = chooser.chooseApplication({u"Locate Vantor Creator"_s, {}, u"Use"_s});
        QVERIFY(finishes(first));
        QCOMPARE(answer(first), std::nullopt);
        QCOMPARE(chooser.title(), u"Locate Vantor Creator"_s);

        chooser.accept(local(u"/Applications/Vantor Creator.app"_s));
        QVERIFY(finishes(second));
        QCOMPARE(answer(second), std::optional(local(u"/Applications/Vantor Creator.app"_s)));
    }

    void onlyLocalFoldersNamedDotAppAreApplications_data() {
        QTest::addColumn<QUrl>("folder");
        QTest::addColumn<bool>("application");
        QTest::newRow("bundle") << local(u"/Applications/Vantor Director.app"_s) << true;
        QTest::newRow("upper case") << local(u"/Applications/VANTOR.App"_s) << true;
        QTest::newRow("trailing slash") << local(u"/Applications/Vantor Director.app/"_s) << true;
        QTest::newRow("plain folder") << local(u"/Applications"_s) << false;
        QTest::newRow("named app") << local(u"/Applications/app"_s) << false;
        QTest::newRow("only the extension") << local(u"/Applications/.app"_s) << false;
        QTest::newRow("later suffix") << local(u"/Applications/Vantor.app.old"_s) << false;
        QTest::newRow("inside a bundle") << local(u"/Applications/Vantor.app/Contents"_s) << false;
        QTest::newRow("remote") << QUrl(u"https://example.com/Vantor.app"_s) << false;
        QTest::newRow("empty") << QUrl() << false;
    }

    void onlyLocalFoldersNamedDotAppAreApplications() {
        QFETCH(QUrl, folder);
        QTEST(PanelLocationChooser::isApplicationBundle(folder), "application");
    }
};

QTEST_GUILESS_MAIN(LocationChooserTest)
#include "LocationChooserTest.moc"
