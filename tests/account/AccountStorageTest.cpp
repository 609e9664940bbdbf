#include "BundleBuilder.h"
#include "MemorySecretStore.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "account/FileAccountSnapshotCache.h"
#include "account/LaunchTokenStore.h"

#include <QDir>
#include <QFile>
#include <QTest>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QDateTime newYear = QDateTime::fromString(u"2026-01-01T00:00:00Z"_s, Qt::ISODate);

int permissionsOf(const QString& path) {
    struct stat attributes {};
    if (::stat(QFile::encodeName(path).constData(), &attributes) != 0)
        return -1;
    return int(attributes.st_mode & 07777);
}

LaunchAccountSnapshot snapshotOf(const QString& id) {
    return LaunchAccountSnapshot{1, WebsiteAccount{id, u"Ana Example"_s, u"ana@example.com"_s},
                                 newYear.addSecs(90)};
}

// A snapshot document of exactly this many bytes, padded with white space so that it decodes.
QByteArray snapshotDocumentOfSize(qsizetype size) {
    QByteArray document = snapshotOf(u"cust-42"_s).encoded();
    document.append(QByteArray(size - document.size(), ' '));
    return document;
}

} // namespace

// The session in the secret store and the account snapshot on disk.
class AccountStorageTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // One item per service and account, its date in seconds since 2001-01-01. Replacing and
    // removing the item are the real keyring's (secret_service_test).
    void tokensAreOneItemOfJson() {
        const auto secrets = std::make_shared<MemorySecretStore>();
        LaunchTokenStore store(secrets);
        const LaunchTokens tokens{u"access-2"_s, u"refresh-2"_s, newYear.addSecs(7200)};
        QVERIFY(outcomeOf(store.save(tokens)).value);
        QCOMPARE(secrets->items.keys(),
                 QStringList{u"nz.co.halvex.VantorLaunch.website-session/current"_s});
        QCOMPARE(*outcomeOf(store.load()).value, std::optional(tokens));
        const auto stored = nlohmann::json::parse(secrets->items.constBegin()->toStdString());
        QCOMPARE(stored["expiresAt"].get<double>(), 788918400.0 + 7200);
    }

    void undecodableItemFailsAndStays_data() {
        QTest::addColumn<QByteArray>("item");
        QTest::newRow("empty object") << QByteArray("{}");
        QTest::newRow("expiry as text")
            << json("{'accessToken':'a','refreshToken':'r','expiresAt':'soon'}");
        QTest::newRow("expiry beyond any date")
            << json("{'accessToken':'a','refreshToken':'r','expiresAt':1e300}");
        QTest::newRow("not JSON") << QByteArray("access-token");
    }

    void undecodableItemFailsAndStays() {
        QFETCH(QByteArray, item);
        const auto secrets = std::make_shared<MemorySecretStore>();
        LaunchTokenStore store(secrets, u"service"_s, u"current"_s);
        secrets->items.insert(u"service/current"_s, item);
        const auto outcome = outcomeOf(store.load());
        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->domain(), LaunchError::Domain::decoding);
        QCOMPARE(secrets->items.value(u"service/current"_s), item);
    }

    void callsOnOneStoreTakeTurns() {
        const auto secrets = std::make_shared<MemorySecretStore>();
        secrets->delay = 20ms;
        LaunchTokenStore store(secrets);
        const LaunchTokens tokens{u"a"_s, u"r"_s, newYear};
        auto save = store.save(tokens);
        TaskOutcome<std::optional<LaunchTokens>> loaded;
        auto load = recordOutcome(store.load(), loaded);
        auto remove = store.remove();
        QVERIFY(finishes(save));
        QVERIFY(finishes(load));
        QVERIFY(finishes(remove));
        QCOMPARE(secrets->log, (QStringList{u"begin write"_s, u"end write"_s, u"begin read"_s,
                                            u"end read"_s, u"begin remove"_s, u"end remove"_s}));
        QCOMPARE(loaded.value,
                 std::optional(std::optional(tokens))); // read after the write it followed
    }

    void snapshotSavesPrivatelyAndAtomically() {
        QTemporaryDir home;
        const QString folder = home.filePath(u"data/Vantor Launch"_s);
        const QString path = folder + u"/website-account-snapshot.json"_s;
        FileAccountSnapshotCache cache(path);
        QCOMPARE(cache.load(), std::nullopt);
        QVERIFY_THROWS_EXCEPTION(LaunchError, cache.save(snapshotOf(u"   "_s)));
        QVERIFY(!QFile::exists(path));

        cache.save(snapshotOf(u"cust-42"_s));
        cache.save(snapshotOf(u"cust-43"_s));
        QCOMPARE(permissionsOf(folder), 0700);
        QCOMPARE(permissionsOf(home.filePath(u"data"_s)), 0700);
        QCOMPARE(permissionsOf(path), 0600);
        QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
                 QStringList{u"website-account-snapshot.json"_s});
        QCOMPARE(cache.load(), std::optional(snapshotOf(u"cust-43"_s)));

        cache.clear();
        cache.clear();
        QCOMPARE(cache.load(), std::nullopt);

        // A folder that exists already keeps the permissions the user gave it.
        QVERIFY(::chmod(QFile::encodeName(folder).constData(), 0755) == 0);
        cache.save(snapshotOf(u"cust-42"_s));
        QCOMPARE(permissionsOf(folder), 0755);
    }

    void snapshotIsReadOnlyWhenSmallAndValid_data() {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<bool>("loads");
        QTest::addColumn<int>("domain");
        const int invalid = int(LaunchError::Domain::snapshot);
        const int decoding = int(LaunchError::Domain::decoding);
        QTest::newRow("2,000,000 bytes") << snapshotDocumentOfSize(2'000'000) << true << 0;
        // Valid JSON too: only the size check can refuse it.
        QTest::newRow("2,000,001 bytes") << snapshotDocumentOfSize(2'000'001) << false << invalid;
        QByteArray schemaTwo = snapshotOf(u"cust-42"_s).encoded();
        schemaTwo.replace("\"schemaVersion\":1", "\"schemaVersion\":2");
        QTest::newRow("schema 2") << schemaTwo << false << invalid;
        QTest::newRow("blank id") << snapshotOf(u" \n "_s).encoded() << false << invalid;
        QTest::newRow("email missing")
            << json("{'schemaVersion':1,'account':{'id':'c','displayName':'A'},"
                    "'lastSuccessfulSync':1}")
            << false << decoding;
        QTest::newRow("date as text")
            << json("{'schemaVersion':1,'account':{'id':'c','displayName':'A','email':''},"
                    "'lastSuccessfulSync':'today'}")
            << false << decoding;
        // Unknown keys are ignored, but not decoded at any depth.
        QTest::newRow("deeply nested")
            << json("{'schemaVersion':1,'account':{'id':'c','displayName':'A','email':'',"
                    "'history':") +
                   QByteArray(100'000, '[') + QByteArray(100'000, ']') +
                   json("},'lastSuccessfulSync':1}")
            << false << decoding;
        QTest::newRow("truncated")
            << snapshotOf(u"cust-42"_s).encoded().chopped(3) << false << decoding;
    }

    void snapshotIsReadOnlyWhenSmallAndValid() {
        QFETCH(QByteArray, document);
        QFETCH(bool, loads);
        QFETCH(int, domain);
        QTemporaryDir home;
        const QString path = home.filePath(u"website-account-snapshot.json"_s);
        writeFile(path, document);

        FileAccountSnapshotCache cache(path);
        try {
            const auto snapshot = cache.load();
            QVERIFY(loads);
            QCOMPARE(snapshot, std::optional(snapshotOf(u"cust-42"_s)));
        } catch (const LaunchError& error) {
            QVERIFY2(!loads, qPrintable(error.description()));
            QCOMPARE(int(error.domain()), domain);
        }
        QVERIFY(QFile::exists(path)); // a file that fails to load stays for the next save
    }
};

QTEST_GUILESS_MAIN(AccountStorageTest)
#include "AccountStorageTest.moc"
