#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QtGlobal>

// What a download's response says about its body, read from the server's header lines one at a
// time. Every value is bounded; a line that is too long or malformed is ignored, never kept.
struct ResponseHead {
    int status = 0;
    qint64 contentLength = -1;
    QByteArray contentRange;
    QByteArray entityTag;
    QByteArray lastModified;
    // Where a redirect that was not followed points, resolved against the request's address.
    QByteArray redirectURL;

    // One header line as the server sent it (its line ending may remain). A status line starts a
    // new response of the chain (a redirect, an interim answer) and forgets the last one's values.
    void readLine(QByteArrayView line);

    // What If-Range may name to continue this body: a strong entity tag, else the date of the
    // last change. A weak tag, or one too odd to send back, names nothing: the body cannot resume.
    QByteArray resumeValidator() const;

    // Whether this answer (a 206) continues a body as "bytes FROM-(LENGTH-1)/LENGTH", FROM being
    // what is already here and LENGTH what the body's first answer announced.
    bool continuesAt(qint64 from, qint64 length) const;
};
