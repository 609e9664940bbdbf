#include "BundleBuilder.h"
#include "HttpsTestServer.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "applications/DirectorReleaseChecker.h"
#include "applications/ProductionApplicationDiscovery.h"
#include "applications/ReleaseManifest.h"
#include "foundation/HttpTransfer.h"
#include "foundation/ResponseHead.h"
#include "foundation/StrictJson.h"
#include "platform/BoundedPropertyList.h"
#include "platform/BundleMetadata.h"
#include "platform/linux/BundleSeal.h"

#include <QFile>
#include <QStringEncoder>
#include <QTemporaryDir>
#include <QTest>
#include <functional>

using namespace Qt::StringLiterals;

using JsonRead = std::function<QString(const JsonObject&)>;
Q_DECLARE_METATYPE(JsonRead)

namespace {

// A manifest whose "direct" entry sits inside `depth` nested objects.
QByteArray nestedManifest(int depth) {
    QByteArray document;
    for (int level = 0; level < depth; ++level)
        document += "{\"direct\":";
    document += "{\"version\":\"2.5.0\"}";
    document += QByteArray(depth, '}');
    return document;
}

const QByteArray directorID = "nz.co.halvex.VantorDirector";

// What a typed read of a JSON value gave, as text; "none" when it found nothing.
template <typename T>
QString asText(const T& value) {
    return QVariant::fromValue(value).toString();
}
template <typename T>
QString asText(const std::optional<T>& value) {
    return value ? asText(*value) : u"none"_s;
}

QByteArray bigEndian(quint64 value, int size) {
    QByteArray bytes;
    for (int index = size - 1; index >= 0; --index)
        bytes += char(value >> (8 * index));
    return bytes;
}

// Objects of a binary property list: references and counts four bytes wide.
QByteArray binaryContainer(int type, const QList<quint32>& references, int entries) {
    QByteArray object(1, char(type << 4 | 0x0F));
    object += "\x12" + bigEndian(quint32(entries), 4);
    for (const quint32 reference : references)
        object += bigEndian(reference, 4);
    return object;
}

QByteArray binaryText(const QByteArray& text) {
    return "\x5F\x10" + bigEndian(quint64(text.size()), 1) + text;
}

QByteArray binaryPropertyList(const QList<QByteArray>& objects) {
    QByteArray list("bplist00");
    QByteArray table;
    for (const QByteArray& object : objects) {
        table += bigEndian(quint64(list.size()), 4);
        list += object;
    }
    const qsizetype tableOffset = list.size();
    return list + table + QByteArray(6, '\0') + "\x04\x04" + bigEndian(quint64(objects.size()), 8) +
           bigEndian(0, 8) + bigEndian(quint64(tableOffset), 8);
}

// The Director's identifier and, under "Deep", `depth` arrays each naming the next
// `referencesPerLevel` times.
QByteArray binaryInfoPlist(int depth, int referencesPerLevel = 1) {
    QList<QByteArray> objects{binaryContainer(0xD, {1, 3, 2, 4}, 2),
                              binaryText("CFBundleIdentifier"), binaryText(directorID),
                              binaryText("Deep")};
    for (quint32 level = 0; level < quint32(depth); ++level) {
        const bool last = level + 1 == quint32(depth);
        objects.append(last ? binaryContainer(0xA, {}, 0)
                            : binaryContainer(0xA, QList<quint32>(referencesPerLevel, 5 + level),
                                              referencesPerLevel));
    }
    return binaryPropertyList(objects);
}

QByteArray nestedArrays(int depth) {
    return QByteArray("<array>").repeated(depth) + QByteArray("</array>").repeated(depth);
}

QByteArray xmlInfoPlist(const QByteArray& prolog, const QByteArray& identifier,
                        const QByteArray& deep) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + prolog +
           "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + identifier +
           "</string><key>Deep</key>" + deep + "</dict></plist>";
}

// A seal whose files sit `depth` arrays deep, behind as many closing tags inside `hiding`.
QByteArray sealHidingDepth(const QByteArray& hidingOpen, const QByteArray& hidingClose, int depth) {
    return "<plist version=\"1.0\"><dict><key>identifier</key><string>" + directorID +
           "</string><key>note</key><string>" + hidingOpen +
           QByteArray("</array>").repeated(depth) + hidingClose + "</string><key>files</key>" +
           nestedArrays(depth) + "</dict></plist>";
}

} // namespace

// Documents and answers that a hostile server or a hostile file can produce: each is refused
// with the decoding error (or read as far as it is sound), and none can bring the launcher down.
// Property lists are read in every encoding that macOS reads.
class HostileInputTest : public QObject {
    Q_OBJECT

    HttpsTestServer m_server;

    TaskOutcome<HttpTransfer::Response> fetch(const QString& path, qint64 limit) {
        HttpTransfer transfer(m_server.makeNetworkAccess());
        QNetworkRequest request(m_server.url(path));
        return outcomeOf(transfer.get(request, limit), 30000);
    }

private Q_SLOTS:
    void refusesDocumentsNestedTooDeep_data() {
        QTest::addColumn<int>("depth");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("at the limit") << JsonObject::maximumDepth - 1 << true;
        QTest::newRow("one beyond") << JsonObject::maximumDepth << false;
        // Deep enough to overflow the stack of anything that walks it recursively.
        QTest::newRow("70,000 levels") << 70'000 << false;
    }

    void refusesDocumentsNestedTooDeep() {
        QFETCH(int, depth);
        QFETCH(bool, accepted);
        const QByteArray document = nestedManifest(depth);
        try {
            const JsonObject root = JsonObject::parse(document);
            std::optional<JsonObject> entry = root;
            for (int level = 0; level < depth; ++level)
                entry = entry->requiredObject("direct");
            QVERIFY(accepted);
            QCOMPARE(entry->requiredString("version"), u"2.5.0"_s);
        } catch (const LaunchError& error) {
            QVERIFY(!accepted);
            QCOMPARE(error.domain(), LaunchError::Domain::decoding);
        }
        if (!accepted)
            QVERIFY_THROWS_EXCEPTION(LaunchError, decodeReleaseManifest(document));
    }

    void decodingErrorsShowOnlyTheFixedSentence() {
        try {
            JsonObject::parse("{\"direct\": {\"build\": \"2500\"}}")
                .requiredObject("direct")
                .optionalInteger("build");
            QFAIL("a string build was accepted");
        } catch (const LaunchError& error) {
            QCOMPARE(error.description(),
                     u"The data couldn’t be read because it isn’t in the correct format."_s);
            QCOMPARE(error.detail(), u"Expected an integer at $.direct.build."_s);
        }
    }

    // Every typed read refuses a present value of another type, optional or not; integers and
    // floating-point numbers stay apart, and versions are read as the document writes them.
    void readsEachTypeStrictly_data() {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<JsonRead>("read");
        QTest::addColumn<QString>("expected"); // null: refused
        const JsonRead version = [](auto& o) { return o.requiredFlexibleVersion("v"); };
        const JsonRead flag = [](auto& o) { return asText(o.optionalBool("v")); };
        const JsonRead integer = [](auto& o) { return asText(o.requiredInteger("v")); };
        const JsonRead maybeInteger = [](auto& o) { return asText(o.optionalInteger("v")); };
        const JsonRead number = [](auto& o) { return asText(o.requiredNumber("v")); };
        const JsonRead text = [](auto& o) { return o.requiredString("v"); };
        const JsonRead maybeText = [](auto& o) { return asText(o.optionalString("v")); };
        const JsonRead objects = [](auto& o) { return asText(int(o.requiredObjects("v").size())); };
        // The value of "v", or after a '!' the whole document.
        const auto row = [](const char* name, const QByteArray& value, const JsonRead& read,
                            const QString& expected) {
            QTest::newRow(name) << (value.startsWith('!') ? value.sliced(1)
                                                          : "{\"v\": " + value + '}')
                                << read << expected;
        };
        row("version: string", "\"1.0-beta\"", version, u"1.0-beta"_s);
        row("version: integer", "3", version, u"3"_s);
        row("version: negative", "-7", version, u"-7"_s);
        row("version: integral float", "2.0", version, u"2.0"_s);
        row("version: fraction", "1.5", version, u"1.5"_s);
        row("version: above the signed range", "18446744073709551615", version,
            u"18446744073709551615"_s);
        row("version: boolean", "true", version, {});
        row("flag: true", "true", flag, u"true"_s);
        row("flag: false", "false", flag, u"false"_s);
        row("flag: null", "null", flag, u"none"_s);
        row("flag: absent", "!{}", flag, u"none"_s);
        row("flag: text", "\"true\"", flag, {});
        row("flag: number", "1", flag, {});
        row("integer", "3", integer, u"3"_s);
        row("integer: integral float", "2.0", integer, u"2"_s);
        row("integer: text", "\"a\"", integer, {});
        row("integer: above the signed range", "18446744073709551615", integer, {});
        row("optional integer: fraction", "2.5", maybeInteger, {});
        row("optional integer: boolean", "true", maybeInteger, {});
        row("number: integer", "3", number, u"3"_s);
        row("number: boolean", "true", number, {});
        row("text", "\"a\"", text, u"a"_s);
        row("text: null", "null", text, {});
        row("optional text: null", "null", maybeText, u"none"_s);
        row("optional text: number", "3", maybeText, {});
        row("objects", "[{\"id\": \"1\"}, {\"id\": \"2\"}]", objects, u"2"_s);
        row("objects: one object", "{\"inner\": \"x\"}", objects, {});
        row("document: an array", "![1, 2]", text, {});
        row("document: cut short", "!{\"v\": ", text, {});
        row("document: empty", "!", text, {});
    }

    void readsEachTypeStrictly() {
        QFETCH(QByteArray, document);
        QFETCH(JsonRead, read);
        QFETCH(QString, expected);
        if (expected.isNull())
            QVERIFY_THROWS_EXCEPTION(LaunchError, read(JsonObject::parse(document)));
        else
            QCOMPARE(read(JsonObject::parse(document)), expected);
    }

    // Only a strong tag or a well-formed date may name a resumption; a malformed date once ran
    // Qt's own date reader past the end of its buffer.
    void namesAResumptionOnlyWithAValidator_data() {
        QTest::addColumn<QByteArray>("lines");
        QTest::addColumn<QByteArray>("validator");
        QTest::newRow("strong tag")
            << QByteArray("ETag: \"v1\"\r\nLast-Modified: x") << QByteArray("\"v1\"");
        QTest::newRow("weak tag") << QByteArray("etag: W/\"v1\"") << QByteArray();
        QTest::newRow("date") << QByteArray("Last-Modified: Wed, 21 Oct 2015 07:28:00 GMT")
                              << QByteArray("Wed, 21 Oct 2015 07:28:00 GMT");
        QTest::newRow("malformed date") << QByteArray("Last-MOdified: W2 de,") << QByteArray();
        QTest::newRow("forgotten by the next response")
            << QByteArray("ETag: \"v1\"\r\nHTTP/1.1 200 OK") << QByteArray();
        QTest::newRow("too long") << "ETag: \"" + QByteArray(300, 'a') + '"' << QByteArray();
    }

    void namesAResumptionOnlyWithAValidator() {
        QFETCH(QByteArray, lines);
        QFETCH(QByteArray, validator);
        ResponseHead head;
        for (const QByteArray& line : lines.split('\n'))
            head.readLine(line);
        QCOMPARE(head.resumeValidator(), validator);
    }

    void capsTheBodyOfEveryResponse_data() {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("at the limit") << qint64(1024) << qint64(1024) << true;
        QTest::newRow("one byte over") << qint64(1025) << qint64(1024) << false;
        QTest::newRow("over the default") << HttpTransfer::defaultMaximumBodySize + 1
                                          << HttpTransfer::defaultMaximumBodySize << false;
    }

    void capsTheBodyOfEveryResponse() {
        QFETCH(qint64, size);
        QFETCH(qint64, limit);
        QFETCH(bool, accepted);
        QTemporaryDir folder;
        QFile body(folder.filePath(u"body.json"_s));
        QVERIFY(body.open(QIODevice::WriteOnly) && body.resize(size));
        body.close();
        HttpsTestServer::Response response(200, {}, "application/json");
        response.filePath = body.fileName();
        m_server.reply(u"GET"_s, u"/large.json"_s, response);

        const auto outcome = fetch(u"/large.json"_s, limit);
        if (accepted) {
            QVERIFY(!outcome.error);
            QCOMPARE(outcome.value->body.size(), size);
        } else {
            QVERIFY(outcome.error);
            QCOMPARE(outcome.error->domain(), LaunchError::Domain::decoding);
        }
        if (limit == HttpTransfer::defaultMaximumBodySize) {
            // Callers that name no limit get the default one.
            DirectorReleaseChecker checker(m_server.url(u"/large.json"_s),
                                           m_server.makeNetworkAccess());
            const auto checked = outcomeOf(checker.latestRelease(), 30000);
            QVERIFY(checked.error);
            QCOMPARE(checked.error->domain(), LaunchError::Domain::decoding);
        }
    }

    void aConnectionLostAfterTheHeadersIsAConnectionError() {
        HttpsTestServer::Response response(200, QByteArray(64 * 1024, ' ') + "{}");
        response.dropAfterBytes = 1000;
        m_server.reply(u"GET"_s, u"/cut.json"_s, response);
        const auto outcome = fetch(u"/cut.json"_s, HttpTransfer::defaultMaximumBodySize);
        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->domain(), LaunchError::Domain::url);
        QVERIFY(outcome.error->isUrlError(LaunchError::networkConnectionLost));
        QVERIFY(outcome.error->isOffline());
    }

    void propertyListStringsWithNulAreUnreadable_data() {
        QTest::addColumn<QByteArray>("plist");
        QTest::newRow("XML")
            << QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">"
                          "<dict><key>CFBundleIdentifier</key><string>a") +
                   '\0' +
                   QByteArray("b</string><key>CFBundleVersion</key><string>2410</string>"
                              "</dict></plist>");
        // CFBundleIdentifier is the UTF-16 text "a", U+0000, "b".
        QTest::newRow("binary, UTF-16") << binaryPropertyList(
            {binaryContainer(0xD, {1, 2}, 1), binaryText("CFBundleIdentifier"),
             QByteArray::fromHex("63006100000062")});
    }

    void propertyListStringsWithNulAreUnreadable() {
        QFETCH(QByteArray, plist);
        QVERIFY(plist.contains('\0'));
        QTemporaryDir folder;
        const QString bundle = folder.filePath(u"Vantor Director.app"_s);
        writeFile(bundle + u"/Contents/Info.plist"_s, plist);

        // The process survives; the value counts as missing, the rest is still read.
        const auto metadata = readBundleMetadata(QUrl::fromLocalFile(bundle));
        QVERIFY(metadata);
        QVERIFY(!metadata->bundleIdentifier);
        if (plist.startsWith("<?xml"))
            QCOMPARE(metadata->build, u"2410"_s);
    }

    // libplist ends the process on a list nested deep enough, a few megabytes of it; each is
    // refused before it gets there, wherever it lies, and a sound list is still read however it
    // is written.
    void deepPropertyListsAreUnreadable_data() {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<bool>("isSeal");
        QTest::addColumn<bool>("readable");
        constexpr int limit = BoundedPropertyList::maximumDepth; // the dictionary is one level
        QTest::newRow("XML, 200,000 arrays deep")
            << xmlInfoPlist({}, directorID, nestedArrays(200'000)) << false << false;
        QTest::newRow("binary, 200,000 arrays deep") << binaryInfoPlist(200'000) << false << false;
        QTest::newRow("XML, at the limit")
            << xmlInfoPlist({}, directorID, nestedArrays(limit - 1)) << false << true;
        QTest::newRow("XML, one level beyond")
            << xmlInfoPlist({}, directorID, nestedArrays(limit)) << false << false;
        QTest::newRow("binary, at the limit") << binaryInfoPlist(limit - 1) << false << true;
        QTest::newRow("binary, one level beyond") << binaryInfoPlist(limit) << false << false;
        // 40 levels, each naming the next twice: 2^40 arrays once built.
        QTest::newRow("binary, one array named a trillion times")
            << binaryInfoPlist(41, 2) << false << false;
        QTest::newRow("XML, document type, comments, CDATA and an entity declared")
            << xmlInfoPlist("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\" [\n"
                            "  <!ENTITY deep \"<array><array/></array>\"> <!-- ]> -->\n]>\n",
                            "nz.co.halvex.<!-- a comment -->Vantor<![CDATA[Director]]>", "<true/>")
            << false << true;
        // libplist skips quoted text inside a processing instruction and would read the arrays
        // that the standard puts inside a comment.
        QTest::newRow("XML, deep arrays behind a quoted ?>")
            << "<?x \"?><!--\"?>" + nestedArrays(200'000) + "-->" +
                   xmlInfoPlist({}, directorID, "<true/>")
            << false << true;
        QTest::newRow("seal, deep behind closing tags in a comment")
            << sealHidingDepth("<!--", "-->", 200'000) << true << false;
        QTest::newRow("seal, deep behind closing tags in CDATA")
            << sealHidingDepth("<![CDATA[", "]]>", 200'000) << true << false;
    }

    void deepPropertyListsAreUnreadable() {
        QFETCH(QByteArray, document);
        QFETCH(bool, isSeal);
        QFETCH(bool, readable);
        if (isSeal) {
            QVERIFY(!BundleSeal::parse(document));
            return;
        }
        QTemporaryDir home;
        writeFile(home.filePath(u"Applications/Vantor Director.app/Contents/Info.plist"_s),
                  document);
        ProductionApplicationDiscovery discovery(LaunchConfiguration::production(),
                                                 std::make_shared<RecordingWorkspace>(),
                                                 {home.filePath(u"System"_s), home.path()});
        const auto discovered = outcomeOf(discovery.discoverApplications());
        QVERIFY(discovered.value);
        // Found only when its identifier was read, and read right.
        QCOMPARE(discovered.value->first().path.has_value(), readable);
    }

    // Info.plist files in the encodings that macOS reads besides plain UTF-8.
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

        const QString plist = bundle.toLocalFile() + u"/Contents/Info.plist"_s;
        QString text = QString::fromUtf8(readFile(plist));
        QVERIFY(!text.isEmpty());
        if (encoding != int(QStringConverter::Utf8))
            text.replace(u"encoding=\"UTF-8\""_s, u"encoding=\"UTF-16\""_s);
        QStringEncoder encoder{QStringConverter::Encoding(encoding)};
        writeFile(plist, mark + QByteArray(encoder.encode(text)));

        const auto metadata = readBundleMetadata(bundle);
        QVERIFY(metadata);
        QCOMPARE(metadata->bundleIdentifier, spec.identifier);
        QCOMPARE(metadata->version, spec.version);
        QCOMPARE(metadata->build, spec.build);
    }
};

QTEST_GUILESS_MAIN(HostileInputTest)
#include "HostileInputTest.moc"
