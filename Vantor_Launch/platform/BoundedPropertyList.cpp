#include "platform/BoundedPropertyList.h"

#include <QByteArrayView>
#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

namespace BoundedPropertyList {
namespace {

constexpr QByteArrayView binaryMagic = "bplist00";

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool isNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':';
}

bool isNameChar(char c) {
    return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

enum class Kind { plist, container, leaf };

std::optional<Kind> kindOf(QByteArrayView name) {
    if (name == "plist")
        return Kind::plist;
    if (name == "dict" || name == "array")
        return Kind::container;
    for (const char* leaf : {"key", "string", "integer", "real", "true", "false", "date", "data"}) {
        if (name == leaf)
            return Kind::leaf;
    }
    return std::nullopt;
}

// libplist knows the five predefined entities and character references; a name declared in a
// document type would be taken for one of those by a prefix match, or refused.
bool referencesAreKnown(QByteArrayView text) {
    for (qsizetype at = text.indexOf('&'); at >= 0; at = text.indexOf('&', at + 1)) {
        const qsizetype end = text.indexOf(';', at);
        if (end < 0)
            return false;
        const QByteArrayView name = text.sliced(at + 1, end - at - 1);
        if (name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos")
            continue;
        const bool hex = name.startsWith("#x");
        const QByteArrayView digits = name.sliced(std::min<qsizetype>(name.size(), hex ? 2 : 1));
        if (!name.startsWith('#') || digits.isEmpty() || digits.size() > 8)
            return false;
        for (const char c : digits) {
            const bool digit = c >= '0' && c <= '9';
            const bool hexLetter = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
            if (!digit && !(hex && hexLetter))
                return false;
        }
    }
    return true;
}

// Reads XML the way the standard does and keeps only elements, their text and CDATA sections:
// what libplist is then given holds nothing that libplist could read differently.
class XmlScanner {
public:
    explicit XmlScanner(const QByteArray& xml)
        : m_xml(xml)
        , m_end(xml.size()) {}

    std::optional<QByteArray> scan() {
        m_kept.reserve(m_xml.size());
        while (m_at < m_end) {
            const qsizetype markup = m_xml.indexOf('<', m_at);
            if (!acceptText(
                    QByteArrayView(m_xml).sliced(m_at, (markup < 0 ? m_end : markup) - m_at)))
                return std::nullopt;
            if (markup < 0)
                break;
            m_at = markup;
            if (!scanMarkup())
                return std::nullopt;
        }
        if (!m_rootClosed)
            return std::nullopt;
        keepUpTo(m_end);
        return std::move(m_kept);
    }

private:
    struct Open {
        QByteArrayView name;
        Kind kind;
    };

    const QByteArray& m_xml;
    const qsizetype m_end;
    qsizetype m_at = 0;
    qsizetype m_keptUpTo = 0; // the bytes before it are in m_kept or dropped
    QByteArray m_kept;
    std::vector<Open> m_open;
    int m_containers = 0;
    bool m_rootOpened = false;
    bool m_rootClosed = false;

    bool startsWith(qsizetype at, QByteArrayView text) const {
        return QByteArrayView(m_xml).sliced(at).startsWith(text);
    }

    bool inLeaf() const { return !m_open.empty() && m_open.back().kind == Kind::leaf; }

    void keepUpTo(qsizetype at) {
        m_kept.append(m_xml.constData() + m_keptUpTo, at - m_keptUpTo);
        m_keptUpTo = at;
    }

    void drop(qsizetype from, qsizetype to) {
        keepUpTo(from);
        m_keptUpTo = to;
    }

    // Text outside a value is white space only; inside one, any bytes (NUL too: the reader of
    // the value decides) with known references.
    bool acceptText(QByteArrayView text) const {
        if (inLeaf())
            return referencesAreKnown(text);
        return std::all_of(text.begin(), text.end(), isSpace);
    }

    // The end of the construct that starts at m_at and ends with the first `terminator` after
    // `opening`; -1 when it never ends.
    qsizetype endOf(qsizetype openingLength, const char* terminator) const {
        const qsizetype at = m_xml.indexOf(terminator, m_at + openingLength);
        return at < 0 ? -1 : at + qsizetype(std::strlen(terminator));
    }

    bool scanMarkup() {
        if (startsWith(m_at, "<!--"))
            return dropUntil(endOf(4, "-->"));
        if (startsWith(m_at, "<?"))
            return dropUntil(endOf(2, "?>"));
        if (startsWith(m_at, "<![CDATA[")) {
            m_at = endOf(9, "]]>");
            return inLeaf() && m_at >= 0;
        }
        if (startsWith(m_at, "<!DOCTYPE")) {
            if (m_rootOpened)
                return false;
            return dropUntil(endOfDocumentType(m_at + 9));
        }
        if (startsWith(m_at, "<!"))
            return false;
        return scanTag();
    }

    bool dropUntil(qsizetype end) {
        if (end < 0)
            return false;
        drop(m_at, end);
        m_at = end;
        return true;
    }

    qsizetype skipSpaces(qsizetype at) const {
        while (at < m_end && isSpace(m_xml[at]))
            ++at;
        return at;
    }

    // After a quote: just past its partner, or -1.
    qsizetype endOfLiteral(qsizetype quote) const {
        const qsizetype close = m_xml.indexOf(m_xml[quote], quote + 1);
        return close < 0 ? -1 : close + 1;
    }

    // "<!DOCTYPE name external-id [internal subset]>": literals in either quote, and in the
    // subset declarations, comments, processing instructions and parameter-entity references.
    qsizetype endOfDocumentType(qsizetype at) const {
        if (at >= m_end || !isSpace(m_xml[at]))
            return -1;
        while (at >= 0 && at < m_end) {
            const char c = m_xml[at];
            if (c == '>')
                return at + 1;
            if (c == '"' || c == '\'') {
                at = endOfLiteral(at);
            } else if (c == '[') {
                at = endOfInternalSubset(at + 1);
                if (at < 0)
                    return -1;
                at = skipSpaces(at);
                return at < m_end && m_xml[at] == '>' ? at + 1 : -1;
            } else {
                ++at;
            }
        }
        return -1;
    }

    // Just past the "]" that closes the subset, or -1.
    qsizetype endOfInternalSubset(qsizetype at) const {
        while (true) {
            at = skipSpaces(at);
            if (at >= m_end)
                return -1;
            if (m_xml[at] == ']')
                return at + 1;
            if (startsWith(at, "<!--")) {
                at = m_xml.indexOf("-->", at + 4);
                at = at < 0 ? -1 : at + 3;
            } else if (startsWith(at, "<?")) {
                at = m_xml.indexOf("?>", at + 2);
                at = at < 0 ? -1 : at + 2;
            } else if (startsWith(at, "<!")) {
                for (at += 2; at >= 0 && at < m_end && m_xml[at] != '>';)
                    at = m_xml[at] == '"' || m_xml[at] == '\'' ? endOfLiteral(at) : at + 1;
                at = at >= 0 && at < m_end ? at + 1 : -1;
            } else if (m_xml[at] == '%') {
                at = m_xml.indexOf(';', at);
                at = at < 0 ? -1 : at + 1;
            } else {
                return -1;
            }
            if (at < 0)
                return -1;
        }
    }

    qsizetype endOfName(qsizetype at) const {
        if (at >= m_end || !isNameStart(m_xml[at]))
            return -1;
        while (at < m_end && isNameChar(m_xml[at]))
            ++at;
        return at;
    }

    // Attributes take either quote but hold neither, nor angle brackets: libplist skips only
    // double-quoted text when it looks for the end of a tag, so both then find the same ">".
    qsizetype endOfAttributes(qsizetype at, bool& empty) const {
        while (true) {
            const qsizetype afterSpaces = skipSpaces(at);
            if (afterSpaces >= m_end)
                return -1;
            if (m_xml[afterSpaces] == '>')
                return afterSpaces + 1;
            if (m_xml[afterSpaces] == '/') {
                empty = true;
                return startsWith(afterSpaces, "/>") ? afterSpaces + 2 : -1;
            }
            if (afterSpaces == at)
                return -1;
            at = endOfName(afterSpaces);
            if (at < 0)
                return -1;
            at = skipSpaces(at);
            if (at >= m_end || m_xml[at] != '=')
                return -1;
            at = skipSpaces(at + 1);
            if (at >= m_end || (m_xml[at] != '"' && m_xml[at] != '\''))
                return -1;
            const qsizetype end = endOfLiteral(at);
            if (end < 0)
                return -1;
            const QByteArrayView value = QByteArrayView(m_xml).sliced(at + 1, end - at - 2);
            for (const char forbidden : {'<', '>', '"', '\''}) {
                if (value.contains(forbidden))
                    return -1;
            }
            at = end;
        }
    }

    bool scanTag() {
        const bool closing = startsWith(m_at, "</");
        const qsizetype nameStart = m_at + (closing ? 2 : 1);
        const qsizetype nameEnd = endOfName(nameStart);
        if (nameEnd < 0)
            return false;
        const QByteArrayView name = QByteArrayView(m_xml).sliced(nameStart, nameEnd - nameStart);
        const auto kind = kindOf(name);
        if (!kind)
            return false;

        if (closing) {
            const qsizetype end = skipSpaces(nameEnd);
            if (end >= m_end || m_xml[end] != '>' || m_open.empty() || m_open.back().name != name)
                return false;
            if (kind == Kind::container)
                --m_containers;
            m_open.pop_back();
            m_rootClosed = m_open.empty();
            m_at = end + 1;
            return true;
        }

        bool empty = false;
        const qsizetype end = endOfAttributes(nameEnd, empty);
        if (end < 0 || inLeaf() || m_rootClosed || (kind == Kind::plist && m_rootOpened))
            return false;
        m_rootOpened = true;
        m_at = end;
        if (empty) {
            m_rootClosed = m_open.empty();
            return true;
        }
        if (kind == Kind::container && ++m_containers > maximumDepth)
            return false;
        m_open.push_back({name, *kind});
        return true;
    }
};

quint64 bigEndian(const uchar* bytes, int size) {
    quint64 value = 0;
    for (int index = 0; index < size; ++index)
        value = value << 8 | bytes[index];
    return value;
}

// Walks the object references of a binary list from its root, depth first with a stack of its
// own, as libplist will: every reference once more, the same object as often as it is named.
class BinaryWalker {
public:
    explicit BinaryWalker(const QByteArray& bytes)
        : m_data(reinterpret_cast<const uchar*>(bytes.constData()))
        , m_size(quint64(bytes.size())) {}

    bool isBounded() {
        if (!readTrailer())
            return false;
        std::vector<bool> onPath(m_objectCount);
        std::vector<Frame> path;
        quint64 nodes = 0;
        const auto enter = [&](quint64 index) {
            if (index >= m_objectCount || ++nodes > maximumBinaryNodes)
                return false;
            const auto object = inspect(index);
            if (!object)
                return false;
            if (!object->isContainer)
                return true;
            // A list that contains itself has no end; libplist would never stop reading it.
            if (onPath[index] || path.size() >= size_t(maximumDepth))
                return false;
            onPath[index] = true;
            path.push_back({index, object->firstReference, object->referenceCount, 0});
            return true;
        };
        if (!enter(m_root))
            return false;
        while (!path.empty()) {
            Frame& top = path.back();
            if (top.next == top.count) {
                onPath[top.index] = false;
                path.pop_back();
                continue;
            }
            const quint64 child =
                bigEndian(m_data + top.first + top.next * m_referenceSize, m_referenceSize);
            ++top.next;
            if (!enter(child))
                return false;
        }
        return true;
    }

private:
    struct Frame {
        quint64 index;
        quint64 first;
        quint64 count;
        quint64 next;
    };
    struct Object {
        bool isContainer = false;
        quint64 firstReference = 0;
        quint64 referenceCount = 0;
    };

    const uchar* m_data;
    quint64 m_size;
    int m_offsetSize = 0;
    int m_referenceSize = 0;
    quint64 m_objectCount = 0;
    quint64 m_root = 0;
    quint64 m_table = 0;

    // The last 32 bytes: 6 unused, offset size, reference size, object count, root, table offset.
    bool readTrailer() {
        constexpr quint64 trailerSize = 32;
        if (m_size < quint64(binaryMagic.size()) + trailerSize)
            return false;
        const uchar* trailer = m_data + m_size - trailerSize;
        m_offsetSize = trailer[6];
        m_referenceSize = trailer[7];
        m_objectCount = bigEndian(trailer + 8, 8);
        m_root = bigEndian(trailer + 16, 8);
        m_table = bigEndian(trailer + 24, 8);
        const quint64 tableEnd = m_size - trailerSize;
        return m_offsetSize >= 1 && m_offsetSize <= 8 && m_referenceSize >= 1 &&
               m_referenceSize <= 8 && m_objectCount > 0 && m_root < m_objectCount &&
               m_table >= quint64(binaryMagic.size()) && m_table <= tableEnd &&
               m_objectCount <= (tableEnd - m_table) / quint64(m_offsetSize);
    }

    // An object's marker: the type in the high four bits, a count in the low four (15: the count
    // follows as an integer object of 1, 2, 4 or 8 bytes). Arrays and sets hold one reference per
    // element, dictionaries one per key and one per value.
    std::optional<Object> inspect(quint64 index) const {
        const quint64 offset =
            bigEndian(m_data + m_table + index * quint64(m_offsetSize), m_offsetSize);
        if (offset < quint64(binaryMagic.size()) || offset >= m_table)
            return std::nullopt;
        const uchar marker = m_data[offset];
        const int type = marker >> 4;
        switch (type) {
        case 0x0:
        case 0x1:
        case 0x2:
        case 0x3:
        case 0x4:
        case 0x5:
        case 0x6:
        case 0x8:
            return Object{};
        case 0xA:
        case 0xC:
        case 0xD:
            break;
        default:
            return std::nullopt;
        }
        Object object{true, offset + 1, quint64(marker & 0x0F)};
        if (object.referenceCount == 0x0F) {
            if (offset + 2 > m_table || (m_data[offset + 1] & 0xF0) != 0x10 ||
                (m_data[offset + 1] & 0x0F) > 3)
                return std::nullopt;
            const int size = 1 << (m_data[offset + 1] & 0x0F);
            if (offset + 2 + quint64(size) > m_table)
                return std::nullopt;
            object.referenceCount = bigEndian(m_data + offset + 2, size);
            object.firstReference = offset + 2 + quint64(size);
        }
        const quint64 perEntry = quint64(m_referenceSize) * (type == 0xD ? 2 : 1);
        if (object.referenceCount > (m_table - object.firstReference) / perEntry)
            return std::nullopt;
        object.referenceCount *= type == 0xD ? 2 : 1;
        return object;
    }
};

bool isBinary(const QByteArray& document) {
    return document.startsWith(binaryMagic);
}

} // namespace

std::optional<QByteArray> boundedDocument(const QByteArray& document, Formats formats) {
    if (document.size() > maximumBytes)
        return std::nullopt;
    if (isBinary(document)) {
        if (formats != Formats::xmlOrBinary || !BinaryWalker(document).isBounded())
            return std::nullopt;
        return document;
    }
    return XmlScanner(document).scan();
}

Pointer parse(const QByteArray& document, Formats formats) {
    const auto bounded = boundedDocument(document, formats);
    if (!bounded)
        return {};
    plist_t root = nullptr;
    if (isBinary(*bounded))
        plist_from_bin(bounded->constData(), uint32_t(bounded->size()), &root);
    else
        plist_from_xml(bounded->constData(), uint32_t(bounded->size()), &root);
    return Pointer(root);
}

} // namespace BoundedPropertyList
