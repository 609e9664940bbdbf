#include "ArtworkCache.h"

#include <QBuffer>
#include <QFutureWatcher>
#include <QImageReader>
#include <QNetworkReply>
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
    if (scheme == u"qrc"_s) {
        QFile file(u':' + url.path());
        if (!file.open(QIODevice::ReadOnly) || file.size() > maximumBody)
            return fail(url);
        return decode(url, file.readAll());
    }
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(30'000);
    QNetworkReply* reply = m_network->get(request);
    connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > maximumBody)
            reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply, url] {
        reply->deleteLater();
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (reply->error() != QNetworkReply::NoError || (status != 0 && status != 200))
            return fail(url);
        decode(url, reply->readAll());
    });
}

void ArtworkCache::decode(const QUrl& url, const QByteArray& body) {
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
    watcher->setFuture(QtConcurrent::run(decodeBounded, body));
}

void ArtworkCache::fail(const QUrl& url) {
    m_loading.remove(url);
    m_failed.insert(url);
    Q_EMIT finished(url, {});
}
