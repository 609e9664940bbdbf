#pragma once

#include "foundation/LaunchError.h"
#include "foundation/TransferControl.h"

#include <QCoroTask>
#include <QString>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

class QNetworkAccessManager;

// The one way the launcher streams a download into a file: the main thread only takes the
// network's events, a worker writes (and, when asked, hashes) each chunk while the next arrives,
// so memory stays flat and the main thread never waits on the disk. Hostile servers are bounded:
// a body longer than it announced or than the caller allows stops at once, and a transfer that
// goes silent, or trickles below a floor rate, ends as a time-out. A connection that drops part-way
// is picked up where it stopped, when the server named a validator for the file, a few times.
class StreamingDownload {
public:
    struct Limits {
        // No byte for this long ends the transfer.
        int stallMilliseconds = 60'000;
        // Fewer than floorBytes over any floorWindowMilliseconds ends it too.
        qint64 floorBytes = 64 * 1024;
        int floorWindowMilliseconds = 120'000;
        // Room the space check keeps free beside a download, so that the user's own work can
        // still be saved.
        qint64 spaceMarginBytes = 64 * 1024 * 1024;
    };

    struct Options {
        using Progress = std::function<void(qint64 received, qint64 length)>;

        bool hash = false;
        // Flushed to disk before the download counts as done: for files that are published as
        // they are. A download that is only unpacked needs no flush of its own.
        bool durable = false;
        // The most the body may hold; the download stops as soon as it passes. 0: no limit.
        qint64 maximumBytes = 0;
        Limits limits;
        // Bytes received so far and the announced length (-1 while unknown), a few times a second;
        // both are the whole file's, across resumptions.
        Progress progress;
        // Called once the headers are in, with the announced length (-1 when none), before any
        // byte is written: it may throw to refuse the download (too little space, for example).
        // Called again when the server sends a changed file from its start.
        std::function<void(qint64 length)> accept;
        // The error for a status outside 200 to 299, and for a body beyond maximumBytes.
        std::function<LaunchError(int status)> refused;
        std::function<LaunchError()> tooLarge;
        // Aborts the request at once; the download then throws the cancelled URL error.
        std::shared_ptr<Cancellation> cancellation;
        // Times a dropped connection is resumed, each only after new bytes had arrived. 0: never.
        int resumeAttempts = 3;
        // Received at the lowest priority, for work nobody waits for.
        bool background = false;
    };

    struct Result {
        qint64 bytes = 0;
        // Lower-case hexadecimal SHA-256 of the body, when asked for.
        QString sha256;
    };

    // Throws the URL error of a failed transfer (timedOut for a silent or crawling one,
    // badServerResponse for a resumption answered with the wrong part), the caller's refusals,
    // and a file LaunchError in the system's words when the file cannot be written ("No space
    // left on device"). What was written stays for the caller to remove.
    static QCoro::Task<Result> fetch(std::shared_ptr<QNetworkAccessManager> network, QUrl url,
                                     QString filePath, Options options);
};
