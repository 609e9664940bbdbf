#include "PackPresentation.h"

#include "../ScreenTexts.h"
#include "StoreDoubles.h"

#include <QTest>

using namespace Qt::StringLiterals;
using Launch::PackInstallation;

namespace {

QStringList factLines(const QVariantList& facts) {
    QStringList lines;
    for (const QVariant& fact : facts) {
        const QVariantMap map = fact.toMap();
        lines.append(map.value(u"label"_s).toString() + u": "_s + map.value(u"value"_s).toString());
    }
    return lines;
}

QList<ContentPack> packList(const QStringList& ids) {
    QList<ContentPack> packs;
    for (const QString& id : ids)
        packs.append(makePack(id, id));
    return packs;
}

} // namespace

// The pack screens' actions, facts, progress and moving through the list.
class PackPresentationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void packActionFollowsTheInstallationState_data() {
        QTest::addColumn<PackInstallation>("installation");
        QTest::addColumn<QString>("title");
        QTest::addColumn<bool>("opensCreator");
        QTest::newRow("installed") << PackInstallation::installed << u"Open in Creator"_s << true;
        QTest::newRow("update") << PackInstallation::updateAvailable << u"Update"_s << false;
        QTest::newRow("downloading")
            << PackInstallation::downloading << u"Installing\u2026"_s << false;
        QTest::newRow("not installed") << PackInstallation::notInstalled << u"Install"_s << false;
        QTest::newRow("failed") << PackInstallation::failed << u"Install"_s << false;
        QTest::newRow("unavailable") << PackInstallation::unavailable << u"Install"_s << false;
    }

    void packActionFollowsTheInstallationState() {
        QFETCH(PackInstallation, installation);
        QFETCH(QString, title);
        QFETCH(bool, opensCreator);
        const ContentPack pack = makePack(u"p"_s, u"P"_s, {}, std::nullopt, installation);
        QCOMPARE(PackPresentation::actionTitleFor(pack), title);
        QCOMPARE(PackPresentation::opensCreatorFor(pack), opensCreator);
    }

    void packFactsShowThePresentValuesWithGroupedCounts() {
        ContentPack pack = makePack(u"p"_s, u"P"_s, {}, u"1.2"_s);
        pack.contentCount = 1200;
        QCOMPARE(factLines(PackPresentation::factsFor(pack, english)),
                 QStringList({u"Version: 1.2"_s, u"Included content: 1,200"_s}));
        pack.downloadSize = u"340 MB"_s;
        pack.version.reset();
        QCOMPARE(factLines(PackPresentation::factsFor(pack, english)),
                 QStringList({u"Download size: 340 MB"_s, u"Included content: 1,200"_s}));
        QCOMPARE(factLines(PackPresentation::factsFor(makePack(u"q"_s, u"Q"_s), english)),
                 QStringList());
    }

    void arrowKeysMoveThroughTheListAndStopAtItsEnds_data() {
        QTest::addColumn<QString>("current");
        QTest::addColumn<int>("offset");
        QTest::addColumn<QString>("next");
        QTest::newRow("down") << u"a"_s << 1 << u"b"_s;
        QTest::newRow("up") << u"c"_s << -1 << u"b"_s;
        QTest::newRow("past the end") << u"c"_s << 1 << u"c"_s;
        QTest::newRow("before the start") << u"a"_s << -1 << u"a"_s;
        // The selected pack was filtered out of the list: the keys start at the top.
        QTest::newRow("not listed") << u"z"_s << 1 << u"a"_s;
    }

    void arrowKeysMoveThroughTheListAndStopAtItsEnds() {
        QFETCH(QString, current);
        QFETCH(int, offset);
        QFETCH(QString, next);
        const QList<ContentPack> packs = packList({u"a"_s, u"b"_s, u"c"_s});
        QCOMPARE(PackPresentation::adjacentPackIDIn(packs, current, offset), next);
        QCOMPARE(PackPresentation::adjacentPackIDIn({}, current, offset), QString());
    }
};

QTEST_GUILESS_MAIN(PackPresentationTest)
#include "PackPresentationTest.moc"
