#pragma once

#include <QByteArray>
#include <memory>
#include <optional>
#include <plist/plist.h>

// The one way from bytes on disk into libplist. libplist recurses once per level when it reads,
// copies or frees a list, so a list nested deep enough (a few megabytes of "<array>") ends the
// process with a stack overflow; a binary list can also refer to itself, or share one object so
// often that its tree has billions of nodes. Every document is measured here first, without
// recursion, and what is too deep, too large or malformed never reaches libplist.
namespace BoundedPropertyList {

// Arrays and dictionaries inside one another. Info.plists and seals need a handful of levels.
constexpr int maximumDepth = 64;
// A seal lists every file of a bundle; nothing read as a property list is larger.
constexpr qsizetype maximumBytes = 64 * 1024 * 1024;
// The nodes libplist builds for a binary list: an object is built once for every reference to
// it, so a small file can name millions. Far above any real Info.plist; far below exhausting
// memory.
constexpr quint64 maximumBinaryNodes = 1 << 20;

enum class Formats { xmlOrBinary, xmlOnly };

struct Deleter {
    void operator()(plist_t node) const { plist_free(node); }
};
using Pointer = std::unique_ptr<void, Deleter>;

// The document as libplist may be given it: a binary list unchanged; XML without its comments,
// processing instructions and document type declaration, which libplist skips by rules of its own
// (quotes inside them, for one) that would let it see markup where this check saw none. None
// when the document is not a property list as far as its structure goes (an unknown element or
// entity, a tag left open, a reference out of range, a cycle), is larger than maximumBytes, or
// nests arrays and dictionaries deeper than maximumDepth.
std::optional<QByteArray> boundedDocument(const QByteArray& document, Formats formats);

// The parsed list, or null when boundedDocument refuses the document or libplist cannot read it.
Pointer parse(const QByteArray& document, Formats formats);

} // namespace BoundedPropertyList
