#include "SparkleVersionComparator.h"

#include <QList>

namespace {

enum class PartKind { number, text, period, separator, dash };

struct Part {
    PartKind kind;
    QStringView text;
};

PartKind kindOf(QChar character) {
    if (character == u'.')
        return PartKind::period;
    if (character == u'-')
        return PartKind::dash;
    if (character.isDigit())
        return PartKind::number;
    if (character.isSpace() || character.isPunct())
        return PartKind::separator;
    return PartKind::text;
}

bool isSeparator(PartKind kind) {
    return kind == PartKind::period || kind == PartKind::separator;
}

// Digits and letters run together into one part; every separator is a part of its own. A dash
// after the first character ends the version: what follows is a build suffix such as a commit
// hash ("1.5.5-335d3e2" and "1.5.5-a655360" are the same version).
QList<Part> partsOf(QStringView version) {
    QList<Part> parts;
    qsizetype start = 0;
    for (qsizetype i = 0; i < version.size(); ++i) {
        const PartKind kind = kindOf(version[i]);
        if (i > 0 && kind == PartKind::dash)
            break;
        const bool joins = !parts.isEmpty() && parts.last().kind == kind &&
                           (kind == PartKind::number || kind == PartKind::text);
        if (joins) {
            parts.last().text = version.sliced(start, i + 1 - start);
        } else {
            start = i;
            parts.append({kind, version.sliced(i, 1)});
        }
    }
    return parts;
}

qsizetype leadingNumbersAndPeriods(const QList<Part>& parts) {
    qsizetype count = 0;
    while (count < parts.size() &&
           (parts[count].kind == PartKind::number || parts[count].kind == PartKind::period))
        ++count;
    return count;
}

// "1.0" and "1.0.0" are the same version: the shorter numeric start is padded with ".0" parts
// until both have as many, before any letters that follow it ("1.0pre1" equals "1.0.0pre1").
void balance(QList<Part>& shorter, const QList<Part>& longer) {
    const qsizetype from = leadingNumbersAndPeriods(shorter);
    const qsizetype to = leadingNumbersAndPeriods(longer);
    for (qsizetype i = from; i < to; ++i) {
        if (longer[i].kind == PartKind::period)
            shorter.insert(i, {PartKind::period, u"."});
        else
            shorter.insert(i, {PartKind::number, u"0"});
    }
}

QStringView withoutLeadingZeros(QStringView digits) {
    qsizetype first = 0;
    while (first + 1 < digits.size() && digits[first].digitValue() == 0)
        ++first;
    return digits.sliced(first);
}

// Numbers of any length compare by value. Sparkle reads each as a 64-bit integer and treats two
// numbers beyond that range as equal; here the longer one is larger, as its digits say.
int compareNumbers(QStringView left, QStringView right) {
    const QStringView a = withoutLeadingZeros(left);
    const QStringView b = withoutLeadingZeros(right);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    for (qsizetype i = 0; i < a.size(); ++i) {
        const int difference = a[i].digitValue() - b[i].digitValue();
        if (difference != 0)
            return difference < 0 ? -1 : 1;
    }
    return 0;
}

int sign(int value) {
    return (value > 0) - (value < 0);
}

} // namespace

int compareSparkleVersions(QStringView left, QStringView right) {
    QList<Part> a = partsOf(left);
    QList<Part> b = partsOf(right);
    if (leadingNumbersAndPeriods(a) < leadingNumbersAndPeriods(b))
        balance(a, b);
    else
        balance(b, a);

    const qsizetype common = std::min(a.size(), b.size());
    for (qsizetype i = 0; i < common; ++i) {
        const PartKind kindA = a[i].kind;
        const PartKind kindB = b[i].kind;
        if (kindA == kindB || (isSeparator(kindA) && isSeparator(kindB))) {
            int order = 0;
            if (kindA == PartKind::number)
                order = compareNumbers(a[i].text, b[i].text);
            else if (kindA == PartKind::text)
                order = sign(a[i].text.compare(b[i].text));
            if (order != 0)
                return order;
            continue;
        }
        // Anything outranks letters ("1.0.1" > "1.0b"), and a number outranks a separator.
        if (kindA == PartKind::text)
            return -1;
        if (kindB == PartKind::text)
            return 1;
        if (kindA == PartKind::number)
            return 1;
        if (kindB == PartKind::number)
            return -1;
        // A leading dash against a separator: Sparkle's answer depends on the order of its
        // arguments here, so both count as separators to keep the order symmetric.
    }
    if (a.size() == b.size())
        return 0;
    // What the longer one adds decides: letters make it a pre-release ("1.0b1" < "1.0"), anything
    // else a later version ("1.0 (1235)" > "1.0").
    const bool leftLonger = a.size() > b.size();
    const PartKind next = leftLonger ? a[common].kind : b[common].kind;
    const bool longerIsNewer = next != PartKind::text;
    return (leftLonger == longerIsNewer) ? 1 : -1;
}
