#include "ArtworkCache.h"

#include "foundation/HttpTransfer.h"

#include <QBuffer>
#include <QFile>
#include <QFutureWatcher>
#include <QImageReader>
#include <QtConcurrent>

using namespace Qt::StringLiterals;

namespace {

QImage decodeBounded(const QByteArray& body) {
    QBuffer buffer;
    buffer.setData(body);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QSize size = reader.size();
    if (!size.isValid() || qint64(size.width()) * size.height() > 64'000'000)
        return {};
    if (std::max(size.width(), size.height()) > ArtworkCache::maximumSide)
        reader.setScaledSize(
            size.scaled(ArtworkCache::maximumSide, ArtworkCache::maximumSide, Qt::KeepAspectRatio));
    return reader.read();
}

QImage readBounded(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > ArtworkCache::maximumBody)
        return {};
    return decodeBounded(file.readAll());
}

// The picture's bytes, or nothing when the host did not give them; never throws.
QCoro::Task<std::optional<QByteArray>> download(std::shared_ptr<QNetworkAccessManager> network,
                                                QUrl url) {
    QNetworkRequest request(url);
    request.setTransferTimeout(30'000);
    try {
        QCoro::Task<HttpTransfer::Response> fetching =
            HttpTransfer(std::move(network)).get(request, ArtworkCache::maximumBody);
        HttpTransfer::Response response = co_await std::move(fetching);
        if (response.status == 200)
            co_return std::move(response.body);
    } catch (const std::exception&) {
    }
    co_return std::nullopt;
}

} // namespace

ArtworkCache::ArtworkCache(QObject* parent)
    : QObject(parent)
    , m_network(std::make_shared<QNetworkAccessManager>()) {
    // Cost in kilobytes: about 96 MB of decoded artwork.
    m_images.setMaxCost(96 * 1024);
}

ArtworkCache& ArtworkCache::shared() {
    // Lives as long as the application, on the main thread.
    static ArtworkCache* cache = new ArtworkCache(qApp);
    return *cache;
}

void ArtworkCache::setNetworkAccess(std::shared_ptr<QNetworkAccessManager> network) {
    if (network)
        m_network = std::move(network);
}

std::optional<QImage> ArtworkCache::image(const QUrl& url) {
    if (QImage* cached = m_images.object(url))
        return *cached;
    if (!m_failed.contains(url) && !m_loading.contains(url))
        load(url);
    return std::nullopt;
}

void ArtworkCache::load(const QUrl& url) {
    const QString scheme = url.scheme();
    if (scheme != u"https"_s && scheme != u"file"_s && scheme != u"qrc"_s) {
        m_failed.insert(url);
        return;
    }
    m_loading.insert(url);
    if (scheme != u"https"_s) {
        // Pictures of the build and of the disk are read where they are decoded.
        const QString path = scheme == u"qrc"_s ? u':' + url.path() : url.toLocalFile();
        return decode(url, QtConcurrent::run(readBounded, path));
    }
    QCoro::connect(download(m_network, url), this,
                   [this, url](const std::optional<QByteArray>& body) {
                       if (!body)
                           return fail(url);
                       decode(url, QtConcurrent::run(decodeBounded, *body));
                   });
}

void ArtworkCache::decode(const QUrl& url, QFuture<QImage> decoding) {
    auto* watcher = new QFutureWatcher<QImage>(this);
    connect(watcher, &QFutureWatcher<QImage>::finished, this, [this, watcher, url] {
        watcher->deleteLater();
        const QImage image = watcher->result();
        if (image.isNull())
            return fail(url);
        m_loading.remove(url);
        m_images.insert(url, new QImage(image), std::max<qsizetype>(1, image.sizeInBytes() / 1024));
        Q_EMIT finished(url, image);
    });
    watcher->setFuture(decoding);
}

void ArtworkCache::fail(const QUrl& url) {
    m_loading.remove(url);
    m_failed.insert(url);
    Q_EMIT finished(url, {});
}
