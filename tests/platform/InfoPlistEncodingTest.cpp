#include "BundleBuilder.h"
#include "platform/BundleMetadata.h"

#include <QFile>
#include <QStringEncoder>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

// Info.plist files in the encodings that macOS reads besides plain UTF-8, written to real bundles.
class InfoPlistEncodingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsEveryEncodingThatMacOSReads_data() {
        QTest::addColumn<QByteArray>("mark");
        QTest::addColumn<int>("encoding");
        QTest::newRow("UTF-8 with a byte-order mark")
            << QByteArray("\xEF\xBB\xBF") << int(QStringConverter::Utf8);
        QTest::newRow("UTF-16 little-endian")
            << QByteArray("\xFF\xFE") << int(QStringConverter::Utf16LE);
        QTest::newRow("UTF-16 big-endian")
            << QByteArray("\xFE\xFF") << int(QStringConverter::Utf16BE);
        QTest::newRow("UTF-16 little-endian without a mark")
            << QByteArray() << int(QStringConverter::Utf16LE);
    }

    void readsEveryEncodingThatMacOSReads() {
        QFETCH(QByteArray, mark);
        QFETCH(int, encoding);
        QTemporaryDir folder;
        // Built whole: GCC's sanitizer build mistakes assignments to its empty optionals for reads
        // of uninitialised memory.
        const BundleSpec spec{u"com.vantor.director"_s, u"2.5.0 \u03b2"_s, u"2500"_s};
        const QUrl bundle = writeBundle(folder.path(), u"Vantor Director.app"_s, spec);

        QFile file(bundle.toLocalFile() + u"/Contents/Info.plist"_s);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QString text = QString::fromUtf8(file.readAll());
        file.close();
        if (encoding != int(QStringConverter::Utf8))
            text.replace(u"encoding=\"UTF-8\""_s, u"encoding=\"UTF-16\""_s);
        QStringEncoder encoder{QStringConverter::Encoding(encoding)};
        const QByteArray bytes = mark + QByteArray(encoder.encode(text));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        QCOMPARE(file.write(bytes), bytes.size());
        file.close();

        const auto metadata = readBundleMetadata(bundle);
        QVERIFY(metadata);
        QCOMPARE(metadata->bundleIdentifier, spec.identifier);
        QCOMPARE(metadata->version, spec.version);
        QCOMPARE(metadata->build, spec.build);
    }
};

QTEST_GUILESS_MAIN(InfoPlistEncodingTest)
#include "InfoPlistEncodingTest.moc"
