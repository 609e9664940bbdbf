#pragma once

#include "foundation/StrictJson.h"

#include <QUrl>
#include <optional>

// URLs in the pack documents: absolute URL text. An empty or malformed address fails the document
// like any other value of the wrong type. Files on disk are read tolerantly (a raw space in a
// file URL is no reason to count the whole content store as unreadable).
std::optional<QUrl> optionalURL(const JsonObject& object, const char* key,
                                QUrl::ParsingMode mode = QUrl::StrictMode);
std::string urlText(const QUrl& url);
