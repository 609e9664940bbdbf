#include "BundleBuilder.h"
#include "TaskOutcome.h"
#include "WebsiteFixture.h"
#include "foundation/StreamingDownload.h"
#include "foundation/TrustingNetworkAccessManager.h"

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QTest>
#include <atomic>

using namespace Qt::StringLiterals;

namespace {

const QString archivePath = u"/updates/VantorDirector-9.0.0.zip"_s;
constexpr qint64 archiveSize = 2 * 1024 * 1024;

QByteArray randomBytes(qint64 size) {
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(bytes.data()),
                                          size / qint64(sizeof(quint32)));
    return bytes;
}

// Replaced the way a website publishes: the old file stays whole for whoever is reading it.
void publish(const QString& path, const QByteArray& bytes) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        qFatal("could not publish the archive");
}

QString sha256(const QByteArray& bytes) {
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

using Drops = QList<qint64>;

} // namespace

// A download that loses its connection part-way, against the sample website's ranges and
// validators; and whom a download trusts.
class ResumedDownloadTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_folder;
    std::unique_ptr<WebsiteFixture> m_site;
    std::shared_ptr<QNetworkAccessManager> m_network;
    QByteArray m_archive;

    QString archiveFile() const { return m_folder.filePath(u"updates/VantorDirector-9.0.0.zip"_s); }

    QStringList rangesAsked() const {
        QStringList ranges;
        for (const auto& request : m_site->server().requests())
            if (request.path == archivePath)
                ranges.append(request.headers.value(u"range"_s));
        return ranges;
    }

private Q_SLOTS:
    void init() {
        m_archive = randomBytes(archiveSize);
        QDir().mkpath(m_folder.filePath(u"updates"_s));
        publish(archiveFile(), m_archive);
        SampleWebsite::Options options;
        options.updatesFolder = m_folder.filePath(u"updates"_s);
        m_site = std::make_unique<WebsiteFixture>(options);
        m_network = m_site->server().makeNetworkAccess();
    }

    void cleanup() {
        // Open connections would hold the server's stop.
        m_network->clearConnectionCache();
        m_network.reset();
        m_site.reset();
    }

    void resumesWhereTheConnectionDropped_data() {
        QTest::addColumn<Drops>("dropsOnce");
        QTest::addColumn<qint64>("dropEveryTime");
        QTest::addColumn<bool>("validators");
        QTest::addColumn<bool>("replaced");
        QTest::addColumn<QStringList>("ranges");
        QTest::addColumn<int>("error"); // -1: the whole file arrives

        const qint64 half = archiveSize / 2;
        const qint64 tenth = archiveSize / 10;
        const auto from = [](qint64 offset) { return u"bytes=%1-"_s.arg(offset); };
        QTest::newRow("dropped halfway")
            << Drops{half} << qint64(-1) << true << false << QStringList{{}, from(half)} << -1;
        QTest::newRow("changed meanwhile: starts over")
            << Drops{half} << qint64(-1) << true << true << QStringList{{}, from(half)} << -1;
        QTest::newRow("no validator: no resumption")
            << Drops{half} << qint64(-1) << false << false << QStringList{{}}
            << int(LaunchError::networkConnectionLost);
        QTest::newRow("dropped three times")
            << Drops{tenth, tenth, tenth} << qint64(-1) << true << false
            << QStringList{{}, from(tenth), from(2 * tenth), from(3 * tenth)} << -1;
        QTest::newRow("dropped a fourth time")
            << Drops{tenth, tenth, tenth, tenth} << qint64(-1) << true << false
            << QStringList{{}, from(tenth), from(2 * tenth), from(3 * tenth)}
            << int(LaunchError::networkConnectionLost);
        QTest::newRow("dropped again before a byte")
            << Drops{} << half << true << false << QStringList{{}, from(half)}
            << int(LaunchError::networkConnectionLost);
    }

    void resumesWhereTheConnectionDropped() {
        QFETCH(Drops, dropsOnce);
        QFETCH(qint64, dropEveryTime);
        QFETCH(bool, validators);
        QFETCH(bool, replaced);
        QFETCH(QStringList, ranges);
        QFETCH(int, error);
        WebsiteFaults& faults = m_site->faults();
        for (const qint64 bytes : dropsOnce)
            faults.dropPathOnceAfterBytes(archivePath, bytes);
        if (dropEveryTime >= 0)
            faults.dropPathAfterBytes(archivePath, dropEveryTime);
        if (!validators)
            faults.withholdValidators(archivePath);

        QByteArray expected = m_archive;
        QList<qint64> lengths;
        QList<qint64> progress;
        StreamingDownload::Options options;
        options.hash = true;
        options.accept = [&](qint64 length) {
            lengths.append(length);
            if (replaced && lengths.size() == 1) {
                expected = randomBytes(archiveSize + 4096);
                publish(archiveFile(), expected);
            }
        };
        options.progress = [&](qint64 received, qint64) { progress.append(received); };
        const QString target = m_folder.filePath(u"download"_s);
        const auto outcome = outcomeOf(StreamingDownload::fetch(m_network, m_site->url(archivePath),
                                                                target, std::move(options)));

        QCOMPARE(rangesAsked(), ranges);
        for (const auto& request : m_site->server().requests())
            if (request.path == archivePath && request.headers.contains(u"range"_s))
                QVERIFY(request.headers.value(u"if-range"_s).startsWith(u'"'));
        if (error >= 0) {
            QVERIFY(outcome.error);
            QVERIFY2(outcome.error->isUrlError(LaunchError::UrlCode(error)),
                     qPrintable(outcome.error->description()));
            return;
        }
        QVERIFY2(!outcome.error,
                 qPrintable(outcome.error ? outcome.error->description() : QString()));
        QCOMPARE(outcome.value->bytes, qint64(expected.size()));
        QCOMPARE(outcome.value->sha256, sha256(expected));
        QCOMPARE(readFile(target), expected);
        // The file's length is asked about once per body, and the count only falls when one
        // starts over.
        const QList<qint64> announced =
            replaced ? QList<qint64>{archiveSize, expected.size()} : QList<qint64>{archiveSize};
        QCOMPARE(lengths, announced);
        int restarts = 0;
        for (qsizetype index = 1; index < progress.size(); ++index)
            if (progress[index] < progress[index - 1]) {
                QCOMPARE(progress[index], qint64(0));
                ++restarts;
            }
        QCOMPARE(restarts, replaced ? 1 : 0);
        QCOMPARE(progress.constLast(), qint64(expected.size()));
    }

    // The download trusts what its manager trusts, and only that: another authority, or the
    // system's, refuses the website's certificate before a request is made.
    void trustsOnlyTheAuthoritiesOfItsManager() {
        const TestCertificateAuthority stranger(u"Stranger Root"_s);
        const QList<std::shared_ptr<QNetworkAccessManager>> managers{
            std::make_shared<TrustingNetworkAccessManager>(
                QSslCertificate::fromData(stranger.certificatePem())),
            std::make_shared<QNetworkAccessManager>()};
        for (const auto& manager : managers) {
            const auto outcome = outcomeOf(StreamingDownload::fetch(
                manager, m_site->url(archivePath), m_folder.filePath(u"untrusted"_s), {}));
            QVERIFY(outcome.error);
            QVERIFY2(outcome.error->isUrlError(LaunchError::secureConnectionFailed),
                     qPrintable(outcome.error->description()));
        }
        QCOMPARE(m_site->server().requestCount(archivePath), 0);
    }

    // A server that answers the resumption with some other part of the file, or none.
    void aWrongContinuationFails_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("contentRange");
        QTest::addColumn<int>("bodyBytes");

        QTest::newRow("another offset") << 206 << QByteArray("bytes 400-1999/2000") << 1600;
        QTest::newRow("another length") << 206 << QByteArray("bytes 500-2999/3000") << 2500;
        QTest::newRow("short of the end") << 206 << QByteArray("bytes 500-999/2000") << 500;
        QTest::newRow("no range named") << 206 << QByteArray() << 1500;
        QTest::newRow("416") << 416 << QByteArray("bytes */2000") << 0;
    }

    void aWrongContinuationFails() {
        QFETCH(int, status);
        QFETCH(QByteArray, contentRange);
        QFETCH(int, bodyBytes);
        auto answered = std::make_shared<std::atomic<int>>(0);
        m_site->server().on(u"GET"_s, u"/odd.bin"_s, [=](const HttpsTestServer::Request&) {
            HttpsTestServer::Response response(200, QByteArray(2000, 'a'),
                                               "application/octet-stream", {{"ETag", "\"v1\""}});
            if ((*answered)++ == 0) {
                response.dropAfterBytes = 500;
                return response;
            }
            response.status = status;
            response.body = QByteArray(bodyBytes, 'b');
            if (!contentRange.isEmpty())
                response.headers.append({"Content-Range", contentRange});
            return response;
        });
        const auto outcome = outcomeOf(
            StreamingDownload::fetch(m_network, m_site->url(u"/odd.bin"_s),
                                     m_folder.filePath(u"odd"_s), StreamingDownload::Options{}));
        QCOMPARE(answered->load(), 2);
        QVERIFY(outcome.error);
        QVERIFY2(outcome.error->isUrlError(LaunchError::badServerResponse),
                 qPrintable(outcome.error->description()));
    }
};

QTEST_GUILESS_MAIN(ResumedDownloadTest)
#include "ResumedDownloadTest.moc"
