// Property lists nested as deep as only megabytes of them are, built from small inputs: the input
// chooses the pieces of a document and how often each repeats, so that the fuzzer reaches the
// depths where libplist runs out of stack without ever writing a large input itself.
#include "platform/BoundedPropertyList.h"

#include <QStringBuilder>
#include <cstdint>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>

namespace {

constexpr int mostLevels = 300'000;

QByteArray bigEndian(quint64 value, int size) {
    QByteArray bytes;
    for (int index = size - 1; index >= 0; --index)
        bytes += char(value >> (8 * index));
    return bytes;
}

// A head, an opening piece repeated, a middle, a closing piece repeated, a tail.
QByteArray xmlDocument(FuzzedDataProvider& input) {
    const int opens = input.ConsumeIntegralInRange(0, mostLevels);
    const int closes = input.ConsumeIntegralInRange(0, mostLevels);
    const QByteArray head = QByteArray::fromStdString(input.ConsumeRandomLengthString(256));
    const QByteArray open = QByteArray::fromStdString(input.ConsumeRandomLengthString(16));
    const QByteArray middle = QByteArray::fromStdString(input.ConsumeRandomLengthString(256));
    const QByteArray close = QByteArray::fromStdString(input.ConsumeRandomLengthString(16));
    const QByteArray tail = QByteArray::fromStdString(input.ConsumeRemainingBytesAsString());
    return head + open.repeated(opens) + middle + close.repeated(closes) + tail;
}

// A chain of arrays, sets or dictionaries, each naming the next a few times, the last naming the
// object the input chooses: the leaf after it, itself or an earlier one (a cycle), or none. The
// rest of the input then overwrites the list where the input says, trailer and table included.
QByteArray binaryDocument(FuzzedDataProvider& input) {
    const int levels = input.ConsumeIntegralInRange(1, mostLevels);
    const int fanOut = input.ConsumeIntegralInRange(1, 3);
    const int type = input.PickValueInArray({0xA, 0xC, 0xD});
    const quint32 lastTarget = input.ConsumeIntegral<quint32>();
    const size_t patchAt = input.ConsumeIntegral<size_t>();
    const std::string patch = input.ConsumeRemainingBytesAsString();

    const int references = type == 0xD ? 2 * fanOut : fanOut;
    QByteArray list("bplist00");
    QByteArray table;
    for (int level = 0; level < levels; ++level) {
        table += bigEndian(quint64(list.size()), 4);
        list += char(type << 4 | 0x0F);
        list += "\x12" + bigEndian(quint64(fanOut), 4);
        const quint32 next = level + 1 < levels ? quint32(level + 1) : lastTarget;
        for (int reference = 0; reference < references; ++reference)
            list += bigEndian(next, 4);
    }
    table += bigEndian(quint64(list.size()), 4);
    list += '\x09'; // true
    const qsizetype tableOffset = list.size();
    list += table + QByteArray(6, '\0') + "\x04\x04" + bigEndian(quint64(levels) + 1, 8) +
            bigEndian(0, 8) + bigEndian(quint64(tableOffset), 8);
    if (!patch.empty()) {
        const qsizetype at = qsizetype(patchAt % size_t(list.size()));
        list.replace(at, std::min<qsizetype>(qsizetype(patch.size()), list.size() - at),
                     QByteArray::fromStdString(patch));
    }
    return list;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const bool binary = input.ConsumeBool();
    const QByteArray document = binary ? binaryDocument(input) : xmlDocument(input);
    using BoundedPropertyList::Formats;
    const auto kept = BoundedPropertyList::boundedDocument(document, Formats::xmlOrBinary);
    // What passed once passes again unchanged: nothing is left for a second look to drop.
    if (kept && BoundedPropertyList::boundedDocument(*kept, Formats::xmlOrBinary) != kept)
        std::abort();
    BoundedPropertyList::parse(document, Formats::xmlOrBinary);
    return 0;
}
