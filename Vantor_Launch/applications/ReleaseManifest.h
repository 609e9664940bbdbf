#pragma once

#include "foundation/AvailableApplicationRelease.h"

#include <QByteArray>
#include <optional>

// The release manifest of Vantor Director: the "direct" entry (downloads from the website), else
// "latest"; none when it has neither. Throws a decoding LaunchError for a document of the wrong
// shape, including a malformed entry beside a good one.
std::optional<AvailableApplicationRelease> decodeReleaseManifest(const QByteArray& document);
