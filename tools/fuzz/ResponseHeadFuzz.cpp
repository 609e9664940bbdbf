// A download's response head comes from the server: its header lines decide whether and where a
// dropped body resumes. Any lines must be read without harm, every value kept stays bounded, and
// what names a resumption is one of the values the server sent.
#include "foundation/ResponseHead.h"

#include <QList>
#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The first bytes choose the offset and length a continuation is checked against.
    qint64 numbers[2] = {0, 0};
    const size_t taken = std::min(size, sizeof numbers);
    std::memcpy(numbers, data, taken);
    const QByteArray bytes(reinterpret_cast<const char*>(data + taken), qsizetype(size - taken));

    ResponseHead head;
    for (const QByteArray& line : bytes.split('\n'))
        head.readLine(line);
    for (const QByteArray* value : {&head.contentRange, &head.entityTag, &head.lastModified})
        if (value->size() > 256)
            std::abort();
    const QByteArray validator = head.resumeValidator();
    if (!validator.isEmpty() && validator != head.entityTag && validator != head.lastModified)
        std::abort();
    if (head.continuesAt(numbers[0], numbers[1]) && !head.contentRange.startsWith("bytes "))
        std::abort();
    return 0;
}
