#pragma once

#include "applications/ReleaseChecking.h"
#include "foundation/HttpTransfer.h"

#include <QUrl>
#include <chrono>

// Reads the published release manifest of Vantor Director: the "direct" entry (downloads from
// the website), else "latest". Decides nothing about the installed copy.
class DirectorReleaseChecker : public ReleaseChecking {
public:
    static constexpr std::chrono::milliseconds defaultTimeout{12'000};

    DirectorReleaseChecker(QUrl url, std::shared_ptr<QNetworkAccessManager> network,
                           std::chrono::milliseconds timeout = defaultTimeout);

    // Fetches the manifest and decodes it with decodeReleaseManifest.
    QCoro::Task<std::optional<AvailableApplicationRelease>> latestRelease() override;

private:
    QUrl m_url;
    HttpTransfer m_transfer;
    std::chrono::milliseconds m_timeout;
};
