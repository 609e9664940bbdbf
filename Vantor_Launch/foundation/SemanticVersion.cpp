#include "foundation/SemanticVersion.h"

#include <limits>

using namespace Qt::StringLiterals;

std::optional<qint64> parseDecimalInteger(QStringView text) {
    qsizetype position = 0;
    bool negative = false;
    if (!text.isEmpty() && (text.front() == u'+' || text.front() == u'-')) {
        negative = text.front() == u'-';
        position = 1;
    }
    if (position == text.size())
        return std::nullopt;

    // Accumulate towards the sign so that the most negative value still fits.
    qint64 value = 0;
    for (; position < text.size(); ++position) {
        const QChar c = text[position];
        if (c < u'0' || c > u'9')
            return std::nullopt;
        const int digit = c.unicode() - u'0';
        if (negative) {
            if (value < (std::numeric_limits<qint64>::min() + digit) / 10)
                return std::nullopt;
            value = value * 10 - digit;
        } else {
            if (value > (std::numeric_limits<qint64>::max() - digit) / 10)
                return std::nullopt;
            value = value * 10 + digit;
        }
    }
    return value;
}

std::optional<SemanticVersion> SemanticVersion::parse(QStringView text) {
    const qsizetype dash = text.indexOf(u'-');
    const QStringView core = dash < 0 ? text : text.left(dash);

    SemanticVersion version;
    for (QStringView piece : core.split(u'.')) {
        // No piece can hold a "-": the text was split at the first one above.
        const auto number = parseDecimalInteger(piece);
        if (!number)
            return std::nullopt;
        version.numbers.append(*number);
    }

    if (dash >= 0) {
        for (QStringView piece : text.mid(dash + 1).split(u'.', Qt::SkipEmptyParts))
            version.prerelease.append(Identifier{piece.toString()});
    }
    return version;
}

namespace {

bool isAsciiDigit(QChar c) {
    return c >= u'0' && c <= u'9';
}

// Compares two runs of digits by value, without limiting their length.
int compareDigitRuns(QStringView lhs, QStringView rhs) {
    while (lhs.size() > 1 && lhs.front() == u'0')
        lhs = lhs.mid(1);
    while (rhs.size() > 1 && rhs.front() == u'0')
        rhs = rhs.mid(1);
    if (lhs.size() != rhs.size())
        return lhs.size() < rhs.size() ? -1 : 1;
    return lhs.compare(rhs);
}

// The file-browser ordering: digit runs by value, letters without regard to case first, then
// with it, so that the order is total.
int compareNaturally(QStringView lhs, QStringView rhs) {
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < lhs.size() && j < rhs.size()) {
        if (isAsciiDigit(lhs[i]) && isAsciiDigit(rhs[j])) {
            const qsizetype startI = i;
            const qsizetype startJ = j;
            while (i < lhs.size() && isAsciiDigit(lhs[i]))
                ++i;
            while (j < rhs.size() && isAsciiDigit(rhs[j]))
                ++j;
            if (int order =
                    compareDigitRuns(lhs.mid(startI, i - startI), rhs.mid(startJ, j - startJ)))
                return order;
            continue;
        }
        const QChar a = lhs[i].toCaseFolded();
        const QChar b = rhs[j].toCaseFolded();
        if (a != b)
            return a < b ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < lhs.size())
        return 1;
    if (j < rhs.size())
        return -1;
    return lhs.compare(rhs, Qt::CaseSensitive) < 0 ? -1 : (lhs == rhs ? 0 : 1);
}

std::weak_ordering toOrdering(int value) {
    if (value < 0)
        return std::weak_ordering::less;
    if (value > 0)
        return std::weak_ordering::greater;
    return std::weak_ordering::equivalent;
}

} // namespace

std::weak_ordering operator<=>(const SemanticVersion::Identifier& lhs,
                               const SemanticVersion::Identifier& rhs) {
    const auto left = parseDecimalInteger(lhs.text);
    const auto right = parseDecimalInteger(rhs.text);
    if (left && right)
        return *left <=> *right;
    if (left)
        return std::weak_ordering::less;
    if (right)
        return std::weak_ordering::greater;
    return toOrdering(compareNaturally(lhs.text, rhs.text));
}

std::weak_ordering operator<=>(const SemanticVersion& lhs, const SemanticVersion& rhs) {
    const qsizetype length = std::max(lhs.numbers.size(), rhs.numbers.size());
    for (qsizetype i = 0; i < length; ++i) {
        const qint64 left = i < lhs.numbers.size() ? lhs.numbers[i] : 0;
        const qint64 right = i < rhs.numbers.size() ? rhs.numbers[i] : 0;
        if (left != right)
            return left <=> right;
    }

    if (lhs.prerelease.isEmpty() != rhs.prerelease.isEmpty())
        return lhs.prerelease.isEmpty() ? std::weak_ordering::greater : std::weak_ordering::less;

    const qsizetype shared = std::min(lhs.prerelease.size(), rhs.prerelease.size());
    for (qsizetype i = 0; i < shared; ++i) {
        if (auto order = lhs.prerelease[i] <=> rhs.prerelease[i]; order != 0)
            return order;
    }
    return lhs.prerelease.size() <=> rhs.prerelease.size();
}

std::optional<bool> isUpdate(QStringView installedVersion,
                             const std::optional<QString>& installedBuild,
                             QStringView availableVersion,
                             const std::optional<QString>& availableBuild) {
    const auto installed = SemanticVersion::parse(installedVersion);
    const auto available = SemanticVersion::parse(availableVersion);
    if (!installed || !available)
        return std::nullopt;
    if (*installed < *available)
        return true;
    if (*available < *installed)
        return false;

    if (!availableBuild)
        return false;
    if (!installedBuild || installedBuild->isEmpty())
        return std::nullopt;
    const auto installedNumber = parseDecimalInteger(*installedBuild);
    const auto availableNumber = parseDecimalInteger(*availableBuild);
    if (!installedNumber || !availableNumber)
        return std::nullopt;
    return *installedNumber < *availableNumber;
}
