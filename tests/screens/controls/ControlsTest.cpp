#include "../ScreenTexts.h"
#include "DateTexts.h"
#include "SymbolImageProvider.h"
#include "SymbolRenderer.h"
#include "SymbolTable.h"
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

    void drawsSymbolsInTheirColourWithCutOutsClear() {
        // info.circle.fill: a filled disc with the "i" cut out of it.
        const QImage image =
            SymbolRenderer::render(u"info.circle.fill"_s, QSize(48, 48), UiPalette::gold());
        QCOMPARE(image.size(), QSize(48, 48));
        const QColor disc = image.pixelColor(10, 24);
        QCOMPARE(disc.alpha(), 255);
        QCOMPARE(disc.rgb(), UiPalette::gold().rgb());
        QCOMPARE(image.pixelColor(24, 30).alpha(), 0); // the stem of the "i"
        QCOMPARE(image.pixelColor(1, 1).alpha(), 0);   // outside the disc
    }

    void trayIconsComeFromTheSameArtwork() {
        SymbolImageProvider provider;
        QSize size;
        const QImage icon =
            provider.requestImage(u"arrow.down.circle.fill"_s, &size, QSize(22, 22));
        QCOMPARE(size, QSize(22, 22));
        QCOMPARE(icon.pixelColor(3, 11).rgb(), UiPalette::paper().rgb());
    }

    void keepsTheLogosProportionsAndColours() {
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
