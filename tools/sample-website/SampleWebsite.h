#pragma once

#include "HttpsTestServer.h"
#include "WebsiteFaults.h"

#include <QJsonObject>
#include <QString>
#include <QUrl>
#include <memory>

// The Vantor website as the launcher sees it, served from a data folder on an HttpsTestServer:
// the release manifest and the update archives, the public catalogue, the authorisation page
// with its hand-over to "vantor-launch://auth", the account API with expiring bearer tokens, the
// pack download manifest and its files with their real SHA-256 digests.
//
// Data folder: "account.json", "catalogue.json", "creator-backgrounds.json", "updates/macos.json"
// and "files/". A URL in those documents that starts with "/" names a path of this website.
class SampleWebsite {
public:
    static inline const QString callbackURL = QStringLiteral("vantor-launch://auth");

    struct Options {
        QString dataFolder = QStringLiteral(LAUNCHER_SAMPLE_WEBSITE_DATA);
        // Where the update archives named by "updates/macos.json" lie; empty: the data folder's
        // "updates".
        QString updatesFolder;
        int accessTokenLifetimeSeconds = 3600;
        int authorizationCodeLifetimeSeconds = 300;
        // The authorisation page hands over at once, as for a user already signed in who
        // approved the launcher before.
        bool approveAutomatically = false;
        // Where the website remembers its sessions between runs (the SHA-256 of each refresh
        // token, never a token); empty: sessions end when the website stops.
        QString sessionsFile;
    };

    // Registers every route on `server`. Throws std::runtime_error when the data folder lacks
    // a document or holds one that is not a JSON object.
    SampleWebsite(HttpsTestServer& server, Options options);
    ~SampleWebsite();
    SampleWebsite(const SampleWebsite&) = delete;
    SampleWebsite& operator=(const SampleWebsite&) = delete;

    WebsiteFaults& faults();

    // The page the launcher opens for sign-in; it appends "state" itself.
    QUrl authorizationStartURL() const;
    QUrl approvalURL(const QString& state) const;
    // The launcher's development configuration for this website (the `--config` file), with
    // the authority that its HTTPS certificate chains to.
    QJsonObject launcherConfiguration(const QString& certificateAuthorityPath) const;

    // Ends every session at once: their access and refresh tokens stop working.
    void endAllSessions();
    int sessionCount() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
};
