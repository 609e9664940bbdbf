#include "AppDetailProfile.h"
#include "AppScreenshots.h"
#include "BundleBuilder.h"
#include "PackPresentation.h"
#include "StoreDoubles.h"

#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Launch::PackInstallation;

namespace {

const QLocale english(QLocale::English, QLocale::UnitedStates);

QStringList factLines(const QVariantList& facts) {
    QStringList lines;
    for (const QVariant& fact : facts) {
        const QVariantMap map = fact.toMap();
        lines.append(map.value(u"label"_s).toString() + u": "_s + map.value(u"value"_s).toString());
    }
    return lines;
}

QVariantList packList(const QStringList& ids) {
    QVariantList packs;
    for (const QString& id : ids)
        packs.append(QVariant::fromValue(makePack(id, id)));
    return packs;
}

// A small image of one colour at `path`, with its folders.
void writeImage(const QString& path, const QSize& size) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::red);
    QVERIFY(image.save(path));
}

} // namespace

// What the pack screens and the application detail screen show, worked out in C++.
class PackAndDetailPresentationTest : public QObject {
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

    void installProgressIsAFractionAndTheAmountReceived_data() {
        QTest::addColumn<QVariant>("entry");
        QTest::addColumn<double>("fraction");
        QTest::addColumn<QString>("text");
        const auto entry = [](double received, double expected) {
            return QVariant(QVariantMap{{u"received"_s, received}, {u"expected"_s, expected}});
        };
        QTest::newRow("halfway") << entry(1'500'000, 3'000'000) << 0.5 << u"1.5 MB of 3.0 MB"_s;
        QTest::newRow("more than announced") << entry(4'000, 2'000) << 1.0 << u"4.0 kB of 2.0 kB"_s;
        QTest::newRow("size unknown") << entry(2'500'000, 0) << -1.0 << u"2.5 MB received"_s;
        QTest::newRow("nothing yet") << QVariant() << -1.0 << QString();
    }

    void installProgressIsAFractionAndTheAmountReceived() {
        QFETCH(QVariant, entry);
        QFETCH(double, fraction);
        QFETCH(QString, text);
        const QVariantMap progress = PackPresentation::progressFor(entry, english);
        QCOMPARE(progress.value(u"fraction"_s).toDouble(), fraction);
        QCOMPARE(progress.value(u"text"_s).toString(), text);
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
        const QVariantList packs = packList({u"a"_s, u"b"_s, u"c"_s});
        QCOMPARE(PackPresentation::adjacentPackIDIn(packs, current, offset), next);
        QCOMPARE(PackPresentation::adjacentPackIDIn({}, current, offset), QString());
    }

    void bothProductProfilesAreCompleteAndTheirScreenshotsShipWithTheLauncher() {
        for (const AppDetailProfile* profile :
             {&AppDetailProfiles::director(), &AppDetailProfiles::creator()}) {
            QVERIFY(!profile->tagline.isEmpty());
            QVERIFY(profile->screenshotNames.size() >= 3);
            for (const QString& name : profile->screenshotNames)
                QVERIFY2(!AppScreenshots::load(name, {}).isNull(), qPrintable(name));
            QVERIFY(!profile->features.isEmpty());
            for (qsizetype i = 0; i < profile->features.size(); ++i) {
                QCOMPARE(profile->features[i].number, i + 1);
                QVERIFY(!profile->features[i].detail.isEmpty());
            }
            QVERIFY(profile->releaseDate.isValid());
            QVERIFY(!profile->recentChanges.isEmpty());
            // The latest release heads the changelog, which runs newest first.
            QCOMPARE(profile->changelog.constFirst().version, profile->releaseVersion);
            for (qsizetype i = 1; i < profile->changelog.size(); ++i)
                QVERIFY(profile->changelog[i].released < profile->changelog[i - 1].released);
        }
        QCOMPARE(&AppDetailProfiles::profileFor(u"Vantor Creator"_s, u"Vantor Creator"_s),
                 &AppDetailProfiles::creator());
        QCOMPARE(&AppDetailProfiles::profileFor(u"Vantor Director"_s, u"Vantor Creator"_s),
                 &AppDetailProfiles::director());
    }

    void screenshotsComeFromTheLauncherFirstThenFromInsideTheApplication_data() {
        QTest::addColumn<QString>("folder");
        QTest::newRow("remote assets") << u"Remote/assets"_s;
        QTest::newRow("embedded bundle") << u"Pellomar_Pellomar.bundle/Remote/assets"_s;
        QTest::newRow("embedded bundle with contents")
            << u"Pellomar_Pellomar.bundle/Contents/Resources/Remote/assets"_s;
    }

    void screenshotsComeFromTheLauncherFirstThenFromInsideTheApplication() {
        QFETCH(QString, folder);
        QTemporaryDir root;
        const QString bundle = root.filePath(u"Vantor Director.app"_s);
        const QString assets = bundle + u"/Contents/Resources/"_s + folder + u'/';
        const QUrl application = QUrl::fromLocalFile(bundle);
        const QString shipped = AppDetailProfiles::director().screenshotNames.constFirst();
        writeImage(assets + shipped, QSize(4, 3));
        writeImage(assets + u"only-inside.png"_s, QSize(5, 2));
        writeFile(assets + u"broken.png"_s, "not an image");

        // Present in both places: the launcher's copy.
        const QSize launcherCopy = AppScreenshots::load(shipped, {}).size();
        QVERIFY(launcherCopy.width() > 5);
        QCOMPARE(AppScreenshots::load(shipped, application).size(), launcherCopy);
        QCOMPARE(AppScreenshots::load(u"only-inside.png"_s, application).size(), QSize(5, 2));
        // Without the installed application only the launcher's screenshots exist.
        QVERIFY(AppScreenshots::load(u"only-inside.png"_s, {}).isNull());
        QVERIFY(AppScreenshots::load(u"broken.png"_s, application).isNull());
        // A name is a file name, never a path out of the folders.
        QVERIFY(AppScreenshots::candidates(u"../../secret.png"_s, application).isEmpty());
        QVERIFY(AppScreenshots::candidates(u"a/b.png"_s, application).isEmpty());
    }
};

QTEST_GUILESS_MAIN(PackAndDetailPresentationTest)
#include "PackAndDetailPresentationTest.moc"
