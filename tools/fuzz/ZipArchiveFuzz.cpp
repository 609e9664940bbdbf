// Zip archives as downloaded: the extractor must refuse or unpack any bytes without crashing,
// and never write outside its destination.
#include "platform/linux/LibarchiveExtractor.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QTemporaryDir folder;
    const QString archive = folder.filePath(QStringLiteral("input.zip"));
    const QString outer = folder.filePath(QStringLiteral("outer"));
    const QString destination = outer + QStringLiteral("/destination");
    QDir(outer).removeRecursively();
    QDir().mkpath(destination);
    QFile file(archive);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(reinterpret_cast<const char*>(data), qsizetype(size));
    file.close();

    const LibarchiveExtractor extractor(qint64(64) << 20, 10'000);
    // The size read from the central directory before unpacking: an answer or none, never a crash.
    extractor.unpackedSize(archive);
    try {
        extractor.extract(archive, destination);
    } catch (const std::exception&) {
        // A destination fault is an answer too.
    }
    // Whatever happened, nothing may appear beside the destination.
    if (QDir(outer).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).size() != 1)
        std::abort();
    return 0;
}
