#pragma once

#include <QList>
#include <QString>
#include <QStringView>
#include <compare>
#include <optional>

// A dotted version with an optional prerelease part ("3.0-beta.2"). Build metadata ("+45") is
// not part of the format: such a text is not a version.
struct SemanticVersion {
    struct Identifier {
        QString text;

        friend std::weak_ordering operator<=>(const Identifier& lhs, const Identifier& rhs);
        friend bool operator==(const Identifier& lhs, const Identifier& rhs) {
            return (lhs <=> rhs) == 0;
        }
    };

    QList<qint64> numbers;
    QList<Identifier> prerelease;

    static std::optional<SemanticVersion> parse(QStringView text);

    // 1.2 and 1.2.0 are equal: missing positions count as zero.
    friend std::weak_ordering operator<=>(const SemanticVersion& lhs, const SemanticVersion& rhs);
    friend bool operator==(const SemanticVersion& lhs, const SemanticVersion& rhs) {
        return (lhs <=> rhs) == 0;
    }
};

// A whole decimal integer with at most one leading sign ("+" or "-"), no overflow.
std::optional<qint64> parseDecimalInteger(QStringView text);

// Whether the available release is newer than the installed copy: true, false, or unknown
// (std::nullopt) when the versions or builds cannot be compared.
std::optional<bool> isUpdate(QStringView installedVersion,
                             const std::optional<QString>& installedBuild,
                             QStringView availableVersion,
                             const std::optional<QString>& availableBuild);
