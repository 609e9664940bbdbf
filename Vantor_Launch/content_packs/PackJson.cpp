#include "content_packs/PackJson.h"

#include "foundation/LaunchError.h"

using namespace Qt::StringLiterals;

std::optional<QUrl> optionalURL(const JsonObject& object, const char* key, QUrl::ParsingMode mode) {
    const auto text = object.optionalString(key);
    if (!text)
        return std::nullopt;
    const QUrl url(*text, mode);
    if (text->isEmpty() || !url.isValid() || url.isRelative())
        throw LaunchError::decoding(
            u"The value of %1 is not an absolute URL."_s.arg(QLatin1String(key)));
    return url;
}

std::string urlText(const QUrl& url) {
    return url.toString(QUrl::FullyEncoded).toStdString();
}
