#include "applications/UpdateDownload.h"

#include "core/HttpTransfer.h"
#include "core/LaunchError.h"

#include <QCoroNetworkReply>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>

using namespace Qt::StringLiterals;

namespace {

struct LaterDeleter {
    void operator()(QNetworkReply* reply) const { reply->deleteLater(); }
};

// A transfer that stops sending for this long has failed; a slow one that keeps going has not.
constexpr int stalledTransferMilliseconds = 60'000;
// How much of the body may wait in memory while the file catches up.
constexpr qint64 readBufferBytes = 1 << 20;

bool isSuccess(const QVariant& status) {
    return status.isValid() && status.toInt() >= 200 && status.toInt() <= 299;
}

} // namespace

QCoro::Task<bool> downloadToFile(std::shared_ptr<QNetworkAccessManager> network, QUrl url,
                                 QString path, qint64 maximumBytes) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw LaunchError::file(u"The update could not be saved to %1."_s.arg(path));

    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setTransferTimeout(stalledTransferMilliseconds);
    const std::unique_ptr<QNetworkReply, LaterDeleter> reply(network->get(request));
    reply->setReadBufferSize(readBufferBytes);

    enum class Stop { none, refusedStatus, writeFailed, tooLarge } stop = Stop::none;
    qint64 written = 0;
    const auto drain = [&] {
        // An error page is not written anywhere, however long it is.
        if (stop == Stop::none &&
            !isSuccess(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute))) {
            stop = Stop::refusedStatus;
            // Not from inside the reply's own signal: aborting there emits finished() and an
            // error while Qt still delivers this body, and Qt then reports its own error again.
            QMetaObject::invokeMethod(reply.get(), &QNetworkReply::abort, Qt::QueuedConnection);
        }
        if (stop != Stop::none) {
            if (reply->isOpen())
                reply->readAll();
            return;
        }
        while (reply->bytesAvailable() > 0) {
            const QByteArray chunk = reply->read(readBufferBytes);
            written += chunk.size();
            if (written > maximumBytes) {
                stop = Stop::tooLarge;
            } else if (file.write(chunk) != chunk.size()) {
                stop = Stop::writeFailed;
            }
            if (stop != Stop::none) {
                reply->abort();
                return;
            }
        }
    };
    const QMetaObject::Connection connection =
        QObject::connect(reply.get(), &QNetworkReply::readyRead, reply.get(), drain);
    auto finished = qCoro(reply.get());
    co_await finished.waitForFinished();
    drain();
    QObject::disconnect(connection);

    switch (stop) {
    case Stop::writeFailed:
        throw LaunchError::file(u"The update could not be saved to %1."_s.arg(path));
    case Stop::tooLarge:
        co_return false;
    case Stop::refusedStatus:
        throw LaunchError::url(LaunchError::badServerResponse);
    case Stop::none:
        break;
    }
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && !isSuccess(status))
        throw LaunchError::url(LaunchError::badServerResponse);
    if (reply->error() != QNetworkReply::NoError) {
        // Only the transfer timeout cancels these replies apart from the stops above.
        const bool timedOut = reply->error() == QNetworkReply::OperationCanceledError;
        throw LaunchError::url(HttpTransfer::urlErrorCode(reply->error(), timedOut));
    }
    if (!file.flush())
        throw LaunchError::file(u"The update could not be saved to %1."_s.arg(path));
    co_return true;
}
