#include "foundation/ResponseHead.h"

#include <QDateTime>
#include <QLocale>
#include <algorithm>
#include <optional>

namespace {

// Room enough for any value a download needs.
constexpr qsizetype longestValue = 256;

std::optional<QByteArray> valueOf(QByteArrayView line, QByteArrayView name) {
    if (line.size() <= name.size() || line.at(name.size()) != ':' ||
        line.first(name.size()).compare(name, Qt::CaseInsensitive) != 0)
        return std::nullopt;
    const QByteArrayView value = line.sliced(name.size() + 1).trimmed();
    if (value.size() > longestValue)
        return std::nullopt;
    return value.toByteArray();
}

bool isPrintable(const QByteArray& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

std::optional<qint64> decimal(QByteArrayView digits) {
    if (digits.isEmpty() || digits.size() > 18 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    return digits.toLongLong();
}

} // namespace

void ResponseHead::readLine(QByteArrayView line) {
    line = line.trimmed();
    if (line.startsWith("HTTP/")) {
        *this = {};
        return;
    }
    if (auto value = valueOf(line, "Content-Range"))
        contentRange = *value;
    else if (auto value = valueOf(line, "ETag"))
        entityTag = *value;
    else if (auto value = valueOf(line, "Last-Modified"))
        lastModified = *value;
}

QByteArray ResponseHead::resumeValidator() const {
    if (entityTag.size() >= 2 && entityTag.startsWith('"') && entityTag.endsWith('"') &&
        isPrintable(entityTag) && entityTag.count('"') == 2)
        return entityTag;
    if (!entityTag.isEmpty() || lastModified.size() > 64 || !isPrintable(lastModified))
        return {};
    // Only the date form servers send today ("Sun, 06 Nov 1994 08:49:37 GMT"), read here: Qt's
    // reader of HTTP dates runs past the end of some malformed ones.
    const QDateTime date = QLocale::c().toDateTime(
        QString::fromLatin1(lastModified), QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'"));
    return date.isValid() ? lastModified : QByteArray();
}

bool ResponseHead::continuesAt(qint64 from, qint64 length) const {
    if (!contentRange.startsWith("bytes "))
        return false;
    const QByteArrayView rest = QByteArrayView(contentRange).sliced(6);
    const qsizetype dash = rest.indexOf('-');
    const qsizetype slash = rest.indexOf('/');
    if (dash < 0 || slash < dash)
        return false;
    const auto first = decimal(rest.first(dash));
    const auto last = decimal(rest.sliced(dash + 1, slash - dash - 1));
    const auto total = decimal(rest.sliced(slash + 1));
    return first == from && total == length && last == length - 1 &&
           (contentLength < 0 || contentLength == length - from);
}
