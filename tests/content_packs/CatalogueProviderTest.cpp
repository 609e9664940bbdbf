#include "StoreDoubles.h"
#include "WebsiteFixture.h"
#include "content_packs/ProductionCatalogueProvider.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString cataloguePath = u"/v1/catalogue"_s;

const char* product(const char* type, const char* ids, const char* description) {
    static std::string text;
    text = std::string("{'displayName': 'Bundle', 'description': '") + description +
           "', 'commercialType': '" + type + "', 'includedContentPackIDs': " + ids +
           ", 'availability': {'isAvailable': true}}";
    return text.c_str();
}

} // namespace

// The public catalogue from the website, and answers the website would never give.
class CatalogueProviderTest : public QObject {
    Q_OBJECT

    // The packs, or the description of the error.
    static std::variant<QList<ContentPack>, QString> load(HttpsTestServer& server) {
        ProductionCatalogueProvider provider(server.url(cataloguePath), server.makeNetworkAccess());
        std::variant<QList<ContentPack>, QString> outcome = u"unfinished"_s;
        auto task = [](ProductionCatalogueProvider& provider,
                       std::variant<QList<ContentPack>, QString>& outcome) -> QCoro::Task<> {
            try {
                outcome = co_await provider.loadCatalogue();
            } catch (const LaunchError& error) {
                outcome = QString::fromUtf8(error.what()); // the sentence and, for decoding, where
            }
        }(provider, outcome);
        if (!finishes(task, 20000))
            qFatal("the catalogue did not load");
        return outcome;
    }

private Q_SLOTS:
    void listsActivePacksWithTheFirstMatchingSummary() {
        const QByteArray catalogue =
            json("{'contentPacks': ["
                 "{'id': 'coast', 'displayName': 'Coastal Memories', 'version': '1.2', "
                 "'contentCount': 24, 'thumbnailURL': '/files/coast.jpg', "
                 "'active': true, 'extra': 1},"
                 "{'id': 'retired', 'displayName': 'Retired', 'active': false},"
                 "{'id': 'nature', 'displayName': 'Nature', 'version': null, 'active': true, "
                 "'thumbnailURL': 'https://[::1'}],"
                 "'products': [") +
            json(product("ContentPack", "['nature']", "Wrong case")) + ',' +
            json(product("contentPack", "['coast', 'nature']", "First")) + ',' +
            json(product("contentPack", "['coast']", "Second")) + "]}";
        WebsiteFixture website({}, {{u"catalogue.json"_s, catalogue}});
        const auto outcome = load(website.server());
        QVERIFY(std::holds_alternative<QList<ContentPack>>(outcome));
        const auto packs = std::get<QList<ContentPack>>(outcome);
        QCOMPARE(packs.size(), 2);
        QCOMPARE(packs[0].id, u"coast"_s);
        QCOMPARE(packs[0].summary, u"First"_s);
        QCOMPARE(packs[0].contentCount, 24);
        QCOMPARE(packs[0].version, u"1.2"_s);
        QCOMPARE(packs[0].artworkURL, website.url(u"/files/coast.jpg"_s));
        QCOMPARE(packs[0].installation, Launch::PackInstallation::unavailable);
        QVERIFY(packs[0].requiresCreator);
        QVERIFY(!packs[0].downloadSize);
        QCOMPARE(packs[1].summary, u"First"_s);
        QVERIFY(!packs[1].version);
        // Artwork that is no address leaves the pack without artwork, not the catalogue empty.
        QVERIFY(!packs[1].artworkURL);

        const auto request = website.server().requests().last();
        QCOMPARE(request.headers.value(u"accept"_s), u"application/json"_s);
        QVERIFY(!request.headers.contains(u"authorization"_s));
    }

    void refusesWhatIsNotACatalogue_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("error");
        const QString badResponse = u"The server returned an unexpected response."_s;
        const QByteArray empty = json("{'contentPacks': [], 'products': []}");
        QTest::newRow("304") << 304 << QByteArray() << badResponse;
        QTest::newRow("300") << 300 << empty << badResponse;
        QTest::newRow("500") << 500 << empty << badResponse;
        QTest::newRow("missing products")
            << 200 << json("{'contentPacks': [{'id': 'a', 'displayName': 'A', 'active': true}]}")
            << u"products"_s;
        QTest::newRow("pack without active")
            << 200 << json("{'contentPacks': [{'id': 'a', 'displayName': 'A'}], 'products': []}")
            << u"active"_s;
        QTest::newRow("not JSON") << 200 << QByteArray("<html>") << u"not valid JSON"_s;
    }

    void refusesWhatIsNotACatalogue() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, error);
        HttpsTestServer server;
        server.reply(u"GET"_s, cataloguePath, {status, body});
        const auto outcome = load(server);
        QVERIFY(std::holds_alternative<QString>(outcome));
        QVERIFY2(std::get<QString>(outcome).contains(error),
                 qPrintable(std::get<QString>(outcome)));
    }
};

QTEST_GUILESS_MAIN(CatalogueProviderTest)
#include "CatalogueProviderTest.moc"
