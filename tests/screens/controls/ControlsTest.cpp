#include "../ScreenTexts.h"
#include "DateTexts.h"
#include "SymbolImageProvider.h"
#include "SymbolRenderer.h"
#include "SymbolTable.h"
#include "TransferPresentation.h"
#include "UiPalette.h"

#include <QImage>
#include <QTest>

using namespace Qt::StringLiterals;

// How the shared controls write dates and draw symbols and logos; texts compared character for
// character.
class ControlsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        // Absolute dates are written in local time.
        qputenv("TZ", "UTC");
    }

    void writesRelativeDatesWithNamedForms() {
        const QDateTime now = utc("2026-11-01T09:00:00Z");
        QCOMPARE(DateTexts::relative(now, now), u"now"_s);
        QCOMPARE(DateTexts::relative(now.addSecs(-30), now), u"30 seconds ago"_s);
        QCOMPARE(DateTexts::relative(now.addSecs(-60), now), u"1 minute ago"_s);
        QCOMPARE(DateTexts::relative(now.addDays(-1), now), u"yesterday"_s);
        QCOMPARE(DateTexts::relative(now.addDays(-2), now), u"2 days ago"_s);
        QCOMPARE(DateTexts::relative(now.addDays(-400), now), u"last year"_s);
        QCOMPARE(DateTexts::relative(now.addSecs(2 * 3600), now), u"in 2 hours"_s);
        QCOMPARE(DateTexts::relative(now.addDays(1), now), u"tomorrow"_s);
    }

    void writesAbsoluteDatesToTheMinuteInTheLocalesOrder() {
        const QDateTime date = utc("2026-10-26T14:05:09Z");
        QCOMPARE(DateTexts::abbreviated(date, english), u"Oct 26, 2026, 2:05 PM"_s);
        // The C locale's short time carries seconds; the status line never does.
        QCOMPARE(DateTexts::abbreviated(date, QLocale::c()), u"26 Oct 2026, 14:05"_s);
    }

    void writesATransfersProgressWithWhatIsKnownOfIt_data() {
        QTest::addColumn<qint64>("received");
        QTest::addColumn<qint64>("expected");
        QTest::addColumn<double>("rate");
        QTest::addColumn<int>("seconds");
        QTest::addColumn<QString>("text");
        QTest::newRow("running") << 120'000'000LL << 300'000'000LL << 24e6 << 8
                                 << u"120 MB of 300 MB — 24 MB/s — about 8 seconds left"_s;
        QTest::newRow("small and slow") << 1'500'000LL << 3'000'000LL << 9'960.0 << 151
                                        << u"1.5 MB of 3.0 MB — 10 kB/s — about 3 minutes left"_s;
        QTest::newRow("long")
            << 0LL << 9'000'000'000LL << 1e6 << 9000
            << u"0 bytes of 9.0 GB — 1.0 MB/s — about 2 hours and 30 minutes left"_s;
        QTest::newRow("speed not yet known")
            << 4'000LL << 2'000'000LL << 0.0 << -1 << u"4.0 kB of 2.0 MB — Calculating…"_s;
        QTest::newRow("size unknown")
            << 25'000'000LL << -1LL << 5e6 << -1 << u"25 MB received — 5.0 MB/s"_s;
        QTest::newRow("rounds into the next unit")
            << 999'999LL << 5'000'000LL << 0.0 << -1 << u"1.0 MB of 5.0 MB — Calculating…"_s;
        QTest::newRow("nothing yet") << 0LL << -1LL << 0.0 << -1 << u"Calculating…"_s;
    }

    void writesATransfersProgressWithWhatIsKnownOfIt() {
        QFETCH(qint64, received);
        QFETCH(qint64, expected);
        QFETCH(double, rate);
        QFETCH(int, seconds);
        QFETCH(QString, text);
        QCOMPARE(TransferPresentation::progressTextFor(received, expected, rate, seconds, english),
                 text);
    }

    void writesTheTrayLineOfATransfer() {
        QCOMPARE(TransferPresentation::installingLineFor(u"Aurora Stage"_s, 0.405, english),
                 u"Installing Aurora Stage — 40 %"_s);
        QCOMPARE(TransferPresentation::updatingLineFor(u"Vantor Director"_s, -1, english),
                 u"Updating Vantor Director…"_s);
    }

    void everySymbolAndLogoHasArtwork() {
        for (const QString& name : SymbolTable::symbolNames() + SymbolTable::logoNames()) {
            const QImage image = SymbolRenderer::render(name, QSize(32, 32), UiPalette::paper());
            QVERIFY2(!image.isNull(), qPrintable(name));
            int opaque = 0;
            for (int y = 0; y < image.height(); ++y)
                for (int x = 0; x < image.width(); ++x)
                    opaque += qAlpha(image.pixel(x, y)) > 128;
            QVERIFY2(opaque > 20, qPrintable(name));
        }
        QVERIFY(SymbolRenderer::render(u"no.such.symbol"_s, QSize(32, 32), Qt::white).isNull());
    }

    void drawsInTheArtworksColoursAndProportions() {
        // info.circle.fill: a filled disc with the "i" cut out of it.
        const QImage image =
            SymbolRenderer::render(u"info.circle.fill"_s, QSize(48, 48), UiPalette::gold());
        QCOMPARE(image.size(), QSize(48, 48));
        QCOMPARE(image.pixelColor(10, 24), UiPalette::gold());
        QCOMPARE(image.pixelColor(24, 30).alpha(), 0); // the stem of the "i"
        QCOMPARE(image.pixelColor(1, 1).alpha(), 0);   // outside the disc

        // The tray's icons come from the same artwork.
        QSize size;
        const QImage icon =
            SymbolImageProvider().requestImage(u"arrow.down.circle.fill"_s, &size, QSize(22, 22));
        QCOMPARE(size, QSize(22, 22));
        QCOMPARE(icon.pixelColor(3, 11).rgb(), UiPalette::paper().rgb());

        const qreal ratio = SymbolRenderer::aspectRatio(u"VantorLaunchLogo"_s);
        QVERIFY(ratio > 4 && ratio < 6);
        const QImage logo = SymbolRenderer::render(u"VantorLaunchLogo"_s, QSize(214, 38), {});
        QCOMPARE(logo.height(), 38);
        QVERIFY(logo.width() <= 214);
        QVERIFY(logo.pixelColor(4, 19).blue() > logo.pixelColor(4, 19).red()); // the blue tile
    }
};

QTEST_GUILESS_MAIN(ControlsTest)
#include "ControlsTest.moc"
