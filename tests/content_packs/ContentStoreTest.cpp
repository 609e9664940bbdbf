#include "content_packs/ContentStore.h"

#include "BundleBuilder.h"
#include "PackFixture.h"

#include <QTest>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

// One manifest entry of `pack` whose asset file lies at `file` (created when `exists`).
QByteArray entry(const QString& id, const QString& pack, const QByteArray& version,
                 const QString& file, bool exists = true) {
    if (exists)
        writeFile(file, "asset");
    return u"{\"id\": \"%1\", \"name\": \"%1\", \"category\": \"c\", \"version\": 1, "
           u"\"contentPackID\": \"%2\", \"installedContentPackVersion\": %3, "
           u"\"localProtectedAssetURL\": \"%4\"}"_s
               .arg(id, pack, QString::fromUtf8(version), QUrl::fromLocalFile(file).toString())
               .toUtf8();
}

// The store's manifest holding these entries.
void writeCatalog(const QString& store, const QByteArrayList& entries) {
    writeFile(store + u"/catalog.json"_s, "[" + entries.join(',') + "]");
}

} // namespace

// The content store's location, its manifest "catalog.json" and the move from the older location,
// on real folders in a throwaway home.
class ContentStoreTest : public QObject {
    Q_OBJECT

    std::unique_ptr<PackFixture> m_fixture;

private Q_SLOTS:
    void init() { m_fixture = std::make_unique<PackFixture>(); }
    void cleanup() { m_fixture.reset(); }

    void fileNamesKeepLettersDigitsDotsAndDashes_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("name");
        QTest::newRow("space and slash") << u"Nature Light/2"_s << u"Nature_Light_2"_s;
        QTest::newRow("version") << u"1.0-beta"_s << u"1.0-beta"_s;
        QTest::newRow("letters of any script") << u"Küste-海"_s << u"Küste-海"_s;
        QTest::newRow("one underscore per code point") << u"a😀b"_s << u"a_b"_s;
        QTest::newRow("empty") << u""_s << u""_s;
        QTest::newRow("dots stay") << u".."_s << u".."_s;
    }

    void fileNamesKeepLettersDigitsDotsAndDashes() {
        QFETCH(QString, text);
        QFETCH(QString, name);
        QCOMPARE(ContentStore::fileNameFor(text), name);
    }

    void containerComesFirst() {
        QCOMPARE(ContentStore::locate().folder, m_fixture->fallbackStore());
        QVERIFY(!ContentStore::locate().inContainer);
        QDir().mkpath(m_fixture->path() + u"/Library/Containers/nz.co.halvex.Pellomar"_s);
        QVERIFY(ContentStore::locate().folder.contains(u"nz.co.halvex.Pellomar/Data/Library"_s));
        QDir().mkpath(m_fixture->path() + u"/Library/Containers/nz.co.halvex.VantorDirector"_s);
        QCOMPARE(ContentStore::locate().folder, m_fixture->containerStore());
        QVERIFY(!QFileInfo::exists(m_fixture->containerStore()));
    }

    void readsInstalledVersions_data() {
        QTest::addColumn<QByteArray>("version");
        QTest::addColumn<QString>("expected"); // empty: the whole file is unreadable
        QTest::newRow("string") << QByteArray("\"1.2\"") << u"1.2"_s;
        QTest::newRow("integer") << QByteArray("2") << u"2"_s;
        QTest::newRow("floating point") << QByteArray("2.5") << u"2.5"_s;
        QTest::newRow("beyond 64 bits")
            << QByteArray("123456789012345678901234567890") << u"123456789012345678901234567890"_s;
        QTest::newRow("unsigned 64 bits")
            << QByteArray("18446744073709551615") << u"18446744073709551615"_s;
        QTest::newRow("boolean") << QByteArray("true") << u""_s;
    }

    void readsInstalledVersions() {
        QFETCH(QByteArray, version);
        QFETCH(QString, expected);
        const QString store = m_fixture->fallbackStore();
        writeCatalog(store,
                     {entry(u"a1"_s, u"coast"_s, "\"0.9\"", store + u"/Packs/coast/a1.vdasset"_s),
                      entry(u"a2"_s, u"coast"_s, version, store + u"/Packs/coast/a2.vdasset"_s)});
        const auto versions = ContentStore::installedPackVersions();
        if (expected.isEmpty())
            QVERIFY(versions.isEmpty());
        else
            QCOMPARE(versions, (QHash<QString, QString>{{u"coast"_s, expected}}));
    }

    void onlyEntriesWithTheirAssetFileCount() {
        const QString store = m_fixture->fallbackStore();
        writeCatalog(store,
                     {entry(u"a1"_s, u"coast"_s, "\"1.0\"", store + u"/x/a1.vdasset"_s, false),
                      entry(u"b1"_s, u"nature"_s, "\"2.0\"", store + u"/x/b1.vdasset"_s),
                      "{\"id\": \"c1\", \"name\": \"c\", \"category\": \"c\", \"version\": 1}"});
        QCOMPARE(ContentStore::installedPackVersions(),
                 (QHash<QString, QString>{{u"nature"_s, u"2.0"_s}}));
    }

    void writesSortedByNameStablyWithSortedKeys() {
        QList<InstalledAsset> entries;
        const QList<std::pair<QString, QString>> idsAndNames{{u"1"_s, u"b"_s},
                                                             {u"2"_s, u"a"_s},
                                                             {u"3"_s, u"b"_s},
                                                             {u"4"_s, u"Z"_s},
                                                             {u"5"_s, u"é"_s}};
        for (const auto& [id, name] : idsAndNames) {
            InstalledAsset asset;
            asset.id = id;
            asset.name = name;
            asset.category = u"c"_s;
            asset.installedContentPackVersion = FlexibleVersion{u"2"_s};
            entries.append(asset);
        }
        const QString store = m_fixture->fallbackStore();
        ContentStore::writeEntries(store, entries);
        QStringList ids;
        const auto written = ContentStore::readEntries(store);
        QVERIFY(written);
        for (const InstalledAsset& asset : *written)
            ids.append(asset.id);
        QCOMPARE(ids, (QStringList{u"4"_s, u"2"_s, u"1"_s, u"3"_s, u"5"_s}));

        QVERIFY(readFile(store + u"/catalog.json"_s)
                    .startsWith("[\n  {\n    \"category\": \"c\",\n    \"id\": \"4\",\n"
                                "    \"installedContentPackVersion\": \"2\",\n"));
    }

    // A manifest that cannot be read may still hold the user's packs: it is kept aside, whole,
    // before a new one is written.
    void anUnreadableManifestIsKeptAside() {
        const QString store = m_fixture->fallbackStore();
        const QByteArray damaged = "[{\"id\": \"a1\", \"name\": ";
        writeFile(store + u"/catalog.json"_s, damaged);
        InstalledAsset asset;
        asset.id = u"b1"_s;
        asset.name = u"b"_s;
        asset.category = u"c"_s;
        asset.contentPackID = u"p"_s;
        QVERIFY(ContentStore::replacePackEntries(store, u"p"_s, {asset}).isEmpty());

        QCOMPARE(ContentStore::readEntries(store)->size(), 1);
        const QStringList aside =
            QDir(store).entryList({u"catalog.json.unreadable-*"_s}, QDir::Files);
        QCOMPARE(aside.size(), 1);
        QCOMPARE(readFile(store + u'/' + aside.first()), damaged);
    }

    void legacyContentMergesIntoTheContainerEachTime() {
        const QString legacy = m_fixture->fallbackStore();
        const QString container = m_fixture->containerStore();
        QDir().mkpath(m_fixture->path() + u"/Library/Containers/nz.co.halvex.VantorDirector"_s);
        writeCatalog(legacy, {entry(u"a1"_s, u"coast"_s, "\"1.0\"",
                                    legacy + u"/Packs/coast/1.0/a1.vdasset"_s)});
        writeFile(legacy + u"/Packs/.hidden"_s, "skip");
        writeCatalog(container,
                     {entry(u"a1"_s, u"old"_s, "\"0.1\"", container + u"/Packs/old/a1.vdasset"_s),
                      entry(u"b1"_s, u"nature"_s, "\"2\"", container + u"/Packs/n/b1.vdasset"_s)});

        const QHash<QString, QString> expected{{u"coast"_s, u"1.0"_s}, {u"nature"_s, u"2"_s}};
        QCOMPARE(ContentStore::installedPackVersions(), expected);
        QVERIFY(QFile::exists(container + u"/Packs/coast/1.0/a1.vdasset"_s));
        QVERIFY(!QFile::exists(container + u"/Packs/.hidden"_s));
        QVERIFY(QFile::exists(legacy + u"/catalog.json"_s));
        const auto merged = ContentStore::readEntries(container);
        QCOMPARE(merged->size(), 2);
        QCOMPARE(merged->at(0).localProtectedAssetURL,
                 QUrl::fromLocalFile(container + u"/Packs/coast/1.0/a1.vdasset"_s));

        // Nothing records the move: an entry Creator wrote with a colliding id is replaced again.
        writeCatalog(container,
                     {entry(u"a1"_s, u"other"_s, "\"9\"", container + u"/Packs/o/a1.vdasset"_s)});
        QCOMPARE(ContentStore::installedPackVersions(),
                 (QHash<QString, QString>{{u"coast"_s, u"1.0"_s}}));
    }
};

QTEST_GUILESS_MAIN(ContentStoreTest)
#include "ContentStoreTest.moc"
