#include "SelfUpdaterAppcast.h"

#include <QList>
#include <QXmlStreamReader>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

const QString sparkleNamespace = u"http://www.andymatuschak.org/xml-namespaces/sparkle"_s;

enum class SegmentKind { number, text, separator };

struct Segment {
    SegmentKind kind;
    QString text;
};

SegmentKind kindOf(QChar character) {
    if (character.isDigit())
        return SegmentKind::number;
    if (character == u'.' || character.isSpace())
        return SegmentKind::separator;
    return SegmentKind::text;
}

QList<Segment> segments(const QString& version) {
    QList<Segment> result;
    for (const QChar character : version) {
        const SegmentKind kind = kindOf(character);
        if (!result.isEmpty() && result.last().kind == kind && kind != SegmentKind::separator)
            result.last().text.append(character);
        else
            result.append({kind, QString(character)});
    }
    return result;
}

QString withoutLeadingZeros(const QString& digits) {
    qsizetype first = 0;
    while (first + 1 < digits.size() && digits[first] == u'0')
        ++first;
    return digits.sliced(first);
}

// Digits of any length, compared as numbers without converting them.
int compareNumbers(const QString& left, const QString& right) {
    const QString a = withoutLeadingZeros(left);
    const QString b = withoutLeadingZeros(right);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    return a.compare(b);
}

struct Item {
    AppcastRelease release;
    bool onDefaultChannel = true;
};

} // namespace

namespace SelfUpdaterAppcast {

int compareVersions(const QString& left, const QString& right) {
    const QList<Segment> a = segments(left);
    const QList<Segment> b = segments(right);
    const qsizetype common = std::min(a.size(), b.size());
    for (qsizetype i = 0; i < common; ++i) {
        if (a[i].kind != b[i].kind) {
            // A number outranks a letter ("1.0.1" > "1.0b"); a separator outranks a letter too.
            if (a[i].kind == SegmentKind::text)
                return -1;
            if (b[i].kind == SegmentKind::text)
                return 1;
            return a[i].kind == SegmentKind::number ? 1 : -1;
        }
        int order = 0;
        if (a[i].kind == SegmentKind::number)
            order = compareNumbers(a[i].text, b[i].text);
        else if (a[i].kind == SegmentKind::text)
            order = a[i].text.compare(b[i].text);
        if (order != 0)
            return order < 0 ? -1 : 1;
    }
    if (a.size() == b.size())
        return 0;
    // The longer one is newer unless what it adds starts with letters (a pre-release).
    const bool leftLonger = a.size() > b.size();
    const Segment& next = leftLonger ? a[common] : b[common];
    const bool isPreRelease = next.kind == SegmentKind::text;
    return (leftLonger != isPreRelease) ? 1 : -1;
}

std::optional<AppcastRelease> newestRelease(const QByteArray& document) {
    QXmlStreamReader reader(document);
    QList<Item> items;
    bool sawChannel = false;
    std::optional<Item> current;

    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            const auto name = reader.name();
            const bool sparkle = reader.namespaceUri() == sparkleNamespace;
            if (!sparkle && name == u"channel"_s) {
                sawChannel = true;
            } else if (!sparkle && name == u"item"_s) {
                current = Item{};
            } else if (current && !sparkle && name == u"enclosure"_s) {
                const auto attributes = reader.attributes();
                current->release.downloadURL = QUrl(attributes.value(u"url"_s).toString());
                const auto version = attributes.value(sparkleNamespace, u"version"_s);
                if (!version.isEmpty() && current->release.version.isEmpty())
                    current->release.version = version.toString();
                const auto shortVersion =
                    attributes.value(sparkleNamespace, u"shortVersionString"_s);
                if (!shortVersion.isEmpty() && current->release.shortVersion.isEmpty())
                    current->release.shortVersion = shortVersion.toString();
            } else if (current && sparkle && name == u"version"_s) {
                current->release.version = reader.readElementText().trimmed();
            } else if (current && sparkle && name == u"shortVersionString"_s) {
                current->release.shortVersion = reader.readElementText().trimmed();
            } else if (current && sparkle && name == u"channel"_s) {
                current->onDefaultChannel = reader.readElementText().trimmed().isEmpty();
            } else if (current && !sparkle && name == u"link"_s) {
                const QUrl link(reader.readElementText().trimmed());
                if (current->release.downloadURL.isEmpty())
                    current->release.downloadURL = link;
            }
        } else if (reader.isEndElement() && reader.name() == u"item"_s &&
                   reader.namespaceUri().isEmpty() && current) {
            items.append(*current);
            current.reset();
        }
    }
    if (reader.hasError())
        throw std::runtime_error("The launcher's appcast is not valid XML.");
    if (!sawChannel)
        throw std::runtime_error("The launcher's appcast has no RSS channel.");

    std::optional<AppcastRelease> newest;
    for (const Item& item : std::as_const(items)) {
        if (!item.onDefaultChannel || item.release.version.isEmpty())
            continue;
        if (!newest || compareVersions(item.release.version, newest->version) > 0)
            newest = item.release;
    }
    if (newest && newest->shortVersion.isEmpty())
        newest->shortVersion = newest->version;
    return newest;
}

} // namespace SelfUpdaterAppcast
