#pragma once

#include "HttpsTestServer.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <mutex>
#include <optional>

// What the sample website does wrong on purpose. Set at start-up from the command line or by a
// test while the server runs; every switch can be aimed at one path or, with "*", at all of them.
class WebsiteFaults {
public:
    static inline const QString everyPath = QStringLiteral("*");

    // Answers this status instead of running the endpoint (a token exchange refused this way
    // does not use up its code).
    void failPath(const QString& path, int status);
    // Waits this long before answering.
    void delayPath(const QString& path, int milliseconds);
    // Announces the whole body, sends it up to this byte of the file, then drops the connection:
    // every time, so that a request for the rest gets no further.
    void dropPathAfterBytes(const QString& path, qint64 bytes);
    // The next answer sends this many bytes of its body, then drops the connection; each call
    // drops one more answer, and the answers after those are whole.
    void dropPathOnceAfterBytes(const QString& path, qint64 bytes);
    // Serves the path's files without ETag and Last-Modified: nothing a client could resume with.
    void withholdValidators(const QString& path);
    // Publishes a digest that the asset's file does not have ("*": every asset).
    void publishWrongDigest(const QString& assetID);
    // Refuses every access and refresh token, as when the website has ended the session.
    void setSessionExpired(bool expired);
    void clear();

    std::optional<int> statusFor(const QString& path) const;
    int delayFor(const QString& path) const;
    // The body bytes to send before dropping an answer that starts at this byte of its file, or
    // -1; uses up a drop made once.
    qint64 takeDropAfterBytes(const QString& path, qint64 fileOffset);
    bool withholdsValidators(const QString& path) const;
    bool publishesWrongDigest(const QString& assetID) const;
    bool sessionExpired() const;

    // Reads the command-line form of the switches: "PATH=STATUS", "PATH=MILLISECONDS",
    // "PATH=BYTES" (a path given twice among the drops made once drops twice). Returns the values
    // that do not read, or an empty list.
    QStringList applyArguments(const QStringList& failures, const QStringList& delays,
                               const QStringList& drops, const QStringList& dropsOnce = {});

private:
    template <typename Value>
    std::optional<Value> lookUp(const QHash<QString, Value>& table, const QString& path) const;

    mutable std::mutex m_mutex;
    QHash<QString, int> m_statuses;
    QHash<QString, int> m_delays;
    QHash<QString, qint64> m_drops;
    QHash<QString, QList<qint64>> m_dropsOnce; // in the order they fire
    QStringList m_withheldValidators;
    QStringList m_wrongDigests;
    bool m_sessionExpired = false;
};
