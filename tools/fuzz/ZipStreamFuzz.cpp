// Zip archives as they arrive: unpacked while a download writes them, then completed from the
// archive's directory. Any bytes must be unpacked, refused or left to the whole-archive path
// without a crash, and nothing may land beside the destination.
#include "platform/linux/LibarchiveExtractor.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdlib>
#include <thread>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QTemporaryDir folder;
    const QString archive = folder.filePath(QStringLiteral("growing.zip"));
    const QString outer = folder.filePath(QStringLiteral("outer"));
    const QString destination = outer + QStringLiteral("/destination");
    QDir(outer).removeRecursively();
    QDir().mkpath(destination);
    QFile(archive).remove();
    QFile(archive).open(QIODevice::WriteOnly);

    // The first byte says how the bytes arrive: in pieces of what size.
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype piece = size > 0 ? 1 + qsizetype(data[0]) * 97 : 1;
    GrowingFile growth;
    std::thread download([&] {
        QFile file(archive);
        if (file.open(QIODevice::Append)) {
            for (qsizetype offset = 0; offset < bytes.size(); offset += piece) {
                file.write(bytes.mid(offset, piece));
                file.flush();
            }
        }
        growth.finish();
    });
    const LibarchiveExtractor extractor(qint64(64) << 20, 10'000);
    try {
        extractor.extractGrowing(archive, growth, destination);
    } catch (const std::exception&) {
        // A destination fault is an answer too.
    }
    download.join();
    if (QDir(outer).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).size() != 1)
        std::abort();
    return 0;
}
