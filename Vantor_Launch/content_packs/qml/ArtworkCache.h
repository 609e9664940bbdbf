#pragma once

#include <QCache>
#include <QFuture>
#include <QHash>
#include <QImage>
#include <QNetworkAccessManager>
#include <QObject>
#include <QSet>
#include <QUrl>
#include <memory>

// Pack artwork, downloaded and decoded away from the main thread and kept in memory for the
// session, so that the overview's tiles and the pack detail share one download. Artwork comes
// from the catalogue: only HTTPS, local files and the launcher's resources are fetched, bodies
// are bounded, and large images are scaled down as they are decoded.
class ArtworkCache : public QObject {
    Q_OBJECT

public:
    static constexpr qint64 maximumBody = 16 * 1024 * 1024;
    static constexpr int maximumSide = 2048;

    static ArtworkCache& shared();

    // The decoded image if it is here already; otherwise starts loading it (once) and answers
    // later with finished(). A URL that failed is not tried again in this session.
    std::optional<QImage> image(const QUrl& url);
    bool hasFailed(const QUrl& url) const { return m_failed.contains(url); }
    // Artwork comes from the website's hosts: load it with the website services' own manager,
    // which trusts what they trust.
    void setNetworkAccess(std::shared_ptr<QNetworkAccessManager> network);

Q_SIGNALS:
    // The image is in the cache, or failed (then `image` is null).
    void finished(const QUrl& url, const QImage& image);

private:
    explicit ArtworkCache(QObject* parent = nullptr);
    void load(const QUrl& url);
    void decode(const QUrl& url, QFuture<QImage> decoding);
    void fail(const QUrl& url);

    std::shared_ptr<QNetworkAccessManager> m_network;
    QCache<QUrl, QImage> m_images;
    QSet<QUrl> m_loading;
    QSet<QUrl> m_failed;
};
