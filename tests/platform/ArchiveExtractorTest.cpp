#include "BundleBuilder.h"
#include "ZipWriter.h"
#include "platform/linux/LibarchiveExtractor.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QtEndian>
#include <functional>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

using ArchiveContents = std::function<void(ZipWriter&)>;
Q_DECLARE_METATYPE(ArchiveContents)
Q_DECLARE_METATYPE(ArchiveExtractor::Streamed)

namespace {

using Streamed = ArchiveExtractor::Streamed;

quint32 crc32(const QByteArray& bytes) {
    quint32 crc = 0xFFFFFFFFu;
    for (const char byte : bytes) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

template <typename T>
void put(QByteArray& bytes, T value) {
    const T little = qToLittleEndian(value);
    bytes.append(reinterpret_cast<const char*>(&little), sizeof little);
}

// A stored zip as Info-ZIP writes it: kinds and modes only in the directory at the end, none in
// the entries' own headers. The directory may leave out the last entry.
QByteArray directoryOnlyModes(const QList<std::tuple<QByteArray, QByteArray, quint32>>& entries,
                              bool hidesLast = false) {
    QByteArray local;
    QByteArray directory;
    for (const auto& [name, data, mode] : entries) {
        const quint32 offset = quint32(local.size());
        const qsizetype directoryBefore = directory.size();
        for (QByteArray* header : {&local, &directory}) {
            const bool central = header == &directory;
            put<quint32>(*header, central ? 0x02014b50 : 0x04034b50);
            if (central)
                put<quint16>(*header, (3 << 8) | 30); // made on Unix
            for (const quint16 value : {10, 0, 0, 0, 0x21})
                put<quint16>(*header, value);
            for (const quint32 value : {crc32(data), quint32(data.size()), quint32(data.size())})
                put<quint32>(*header, value);
            put<quint16>(*header, quint16(name.size()));
            put<quint16>(*header, 0);
            if (central) {
                for (const quint16 value : {0, 0, 0})
                    put<quint16>(*header, value);
                put<quint32>(*header, mode << 16);
                put<quint32>(*header, offset);
            }
            header->append(name);
        }
        if (hidesLast && name == std::get<0>(entries.last()))
            directory.truncate(directoryBefore);
        local.append(data);
    }
    QByteArray end;
    put<quint32>(end, 0x06054b50);
    const auto listed = quint16(entries.size() - (hidesLast ? 1 : 0));
    for (const quint16 value : {quint16(0), quint16(0), listed, listed})
        put<quint16>(end, value);
    put<quint32>(end, quint32(directory.size()));
    put<quint32>(end, quint32(local.size()));
    put<quint16>(end, 0);
    return local + directory + end;
}

// Every item under root: a file's mode and contents, a link's target, a folder.
QMap<QString, QByteArray> treeOf(const QString& root) {
    QMap<QString, QByteArray> tree;
    QDirIterator items(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                       QDirIterator::Subdirectories);
    while (items.hasNext()) {
        const QFileInfo item(items.next());
        const QString name = QDir(root).relativeFilePath(item.filePath());
        if (item.isSymLink()) {
            char target[4096];
            const ssize_t length =
                ::readlink(QFile::encodeName(item.filePath()).constData(), target, sizeof target);
            tree[name] = "-> " + QByteArray(target, int(std::max<ssize_t>(length, 0)));
        } else if (item.isDir()) {
            tree[name] = "folder";
        } else {
            tree[name] =
                QByteArray::number(int(item.permissions()), 16) + ' ' + readFile(item.filePath());
        }
    }
    return tree;
}

} // namespace

// Unpacking downloads: what a release holds comes out whole, and nothing can land or point
// outside the extraction folder.
class ArchiveExtractorTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    QString m_destination;
    QString m_outside; // a sibling of the destination that nothing may reach

    QString archiveOf(const ArchiveContents& contents) {
        const QString path = m_folder.filePath(u"archive.zip"_s);
        ZipWriter writer(path);
        contents(writer);
        writer.close();
        return path;
    }

private Q_SLOTS:
    void init() {
        QVERIFY(m_folder.isValid());
        m_destination = m_folder.filePath(u"extract/inner"_s);
        m_outside = m_folder.filePath(u"extract"_s);
        QDir(m_folder.path()).removeRecursively();
        QVERIFY(QDir().mkpath(m_destination));
    }

    void keepsFoldersModesAndLinksOfABundle() {
        const QString archive = archiveOf([](ZipWriter& zip) {
            zip.addDirectory("Director.app/Contents/MacOS");
            zip.addFile("Director.app/Contents/MacOS/director", "#!/bin/sh\n", 04755);
            zip.addFile("Director.app/Contents/Resources/readme.txt", "text", 0644);
            zip.addDirectory("Director.app/Contents/Locked", 0555);
            zip.addFile("Director.app/Contents/Locked/data", "locked");
            zip.addDirectory("Director.app/Contents/Frameworks/Kit.framework/Versions/A");
            zip.addFile("Director.app/Contents/Frameworks/Kit.framework/Versions/A/Kit", "lib");
            zip.addSymlink("Director.app/Contents/Frameworks/Kit.framework/Versions/Current", "A");
            zip.addSymlink("Director.app/Contents/Frameworks/Kit.framework/Kit",
                           "Versions/Current/Kit");
        });
        QVERIFY(LibarchiveExtractor().extract(archive, m_destination));

        const QDir bundle(m_destination + u"/Director.app/Contents"_s);
        struct stat executable {};
        QVERIFY(::stat(QFile::encodeName(bundle.filePath(u"MacOS/director"_s)).constData(),
                       &executable) == 0);
        // Modes come through, except the set-user-id bit, which a download never gets.
        QCOMPARE(executable.st_mode & 07777, mode_t(0755));
        // A folder the archive made read-only stays removable by the updater's cleanup.
        QVERIFY(QFileInfo(bundle.filePath(u"Locked"_s)).permissions() & QFile::WriteOwner);
        const QString kit = bundle.filePath(u"Frameworks/Kit.framework/Kit"_s);
        QVERIFY(QFileInfo(kit).isSymLink());
        QVERIFY(
            QFileInfo(bundle.filePath(u"Frameworks/Kit.framework/Versions/Current"_s)).isSymLink());
        QCOMPARE(QFileInfo(kit).canonicalFilePath(),
                 QFileInfo(bundle.filePath(u"Frameworks/Kit.framework/Versions/A/Kit"_s))
                     .canonicalFilePath());
        QCOMPARE(readFile(kit), QByteArray("lib"));
        QCOMPARE(readFile(bundle.filePath(u"Resources/readme.txt"_s)), QByteArray("text"));
    }

    // Whole and as the download writes it: nothing lands or points outside the destination, a
    // damaged archive is refused, and so is one beyond a ceiling, which is an allowance: an
    // archive that reaches one exactly unpacks.
    void refusesWhatWouldEscapeOrOverflow_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<qint64>("byteCeiling");
        QTest::addColumn<qint64>("entryCeiling");
        QTest::addColumn<Streamed>("expected"); // unpacked as it is written
        const auto refused = [this](const char* name, const ArchiveContents& contents) {
            QTest::newRow(name) << readFile(archiveOf(contents))
                                << ArchiveExtractor::maximumTotalBytes
                                << ArchiveExtractor::maximumEntries << Streamed::refused;
        };
        refused("parent folder entry", [](ZipWriter& zip) {
            zip.addFile("Director.app/Contents/Info.plist", "x");
            zip.addFile("../escaped", "x");
        });
        refused("parent folder inside a name",
                [](ZipWriter& zip) { zip.addFile("Director.app/../../escaped", "x"); });
        refused("absolute entry", [this](ZipWriter& zip) {
            zip.addFile(QFile::encodeName(m_folder.filePath(u"extract/escaped"_s)), "x");
        });
        refused("link to a parent folder", [](ZipWriter& zip) {
            zip.addSymlink("Director.app/Contents/escaped", "../../../..");
        });
        refused("chain of links that leaves", [](ZipWriter& zip) {
            zip.addSymlink("here", ".");
            zip.addSymlink("escaped", "here/../x");
        });
        // "inner-sibling" begins with the destination's own name, so only a comparison that
        // ends the destination with a separator tells the two apart.
        refused("chain of links into a sibling of a similar name", [](ZipWriter& zip) {
            zip.addSymlink("here", ".");
            zip.addSymlink("escaped", "here/../inner-sibling");
        });
        refused("file written through a link", [](ZipWriter& zip) {
            zip.addDirectory("Director.app/Contents");
            zip.addSymlink("Director.app/Current", "Contents");
            zip.addFile("Director.app/Current/Info.plist", "x");
        });
        const QByteArray three = readFile(archiveOf([](ZipWriter& zip) {
            for (const char* name : {"a", "b", "c"})
                zip.addFile(name, QByteArray(4000, 'x'));
        }));
        // Damage seen while streaming leaves the archive to be read whole, which refuses it.
        QTest::newRow("not an archive") << QByteArray("plain text, not a zip") << qint64(1 << 20)
                                        << qint64(100) << Streamed::needsWholeArchive;
        QTest::newRow("truncated") << three.left(three.size() / 2) << qint64(1 << 20) << qint64(100)
                                   << Streamed::needsWholeArchive;
        QTest::newRow("more entries than allowed")
            << three << qint64(1 << 20) << qint64(2) << Streamed::refused;
        QTest::newRow("unpacks larger than allowed")
            << three << qint64(10'000) << qint64(100) << Streamed::refused;
        QTest::newRow("exactly the entry ceiling")
            << three << qint64(1 << 20) << qint64(3) << Streamed::unpacked;
        QTest::newRow("exactly the byte ceiling")
            << three << qint64(12'000) << qint64(100) << Streamed::unpacked;
    }

    void refusesWhatWouldEscapeOrOverflow() {
        QFETCH(QByteArray, bytes);
        QFETCH(qint64, byteCeiling);
        QFETCH(qint64, entryCeiling);
        QFETCH(Streamed, expected);
        const QString path = m_folder.filePath(u"given.zip"_s);
        writeFile(path, bytes);
        // A decoy beside the destination, for the row whose links lead into it.
        QVERIFY(QDir().mkpath(m_outside + u"/inner-sibling"_s));
        const LibarchiveExtractor extractor(byteCeiling, entryCeiling);
        GrowingFile whole;
        whole.finish();
        for (const bool streamed : {false, true}) {
            QDir(m_destination).removeRecursively();
            QVERIFY(QDir().mkpath(m_destination));
            if (streamed)
                QCOMPARE(extractor.extractGrowing(path, whole, m_destination), expected);
            else
                QCOMPARE(extractor.extract(path, m_destination), expected == Streamed::unpacked);
            QCOMPARE(
                QDir(m_outside).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
                (QStringList{u"inner"_s, u"inner-sibling"_s}));
            QVERIFY(QDir(m_outside + u"/inner-sibling"_s).isEmpty());
            QVERIFY(!QFile::exists(m_folder.filePath(u"escaped"_s)));
        }
    }

    // Unpacked as the download writes it, an archive comes out as it would whole; one whose
    // entries' headers disagree with its directory is left to be unpacked whole, and a download
    // that ends early ends the unpacking.
    void unpacksWhileWritten_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("completes");
        QTest::addColumn<Streamed>("expected");
        const QByteArray bundle = readFile(archiveOf([](ZipWriter& zip) {
            zip.addDirectory("Director.app/Contents/MacOS");
            zip.addFile("Director.app/Contents/MacOS/director", QByteArray(300'000, 'd'), 0755);
            zip.addFile("Director.app/Contents/Resources/readme.txt", "text", 0644);
            zip.addSymlink("Director.app/Contents/Current", "Resources");
            for (int index = 0; index < 40; ++index)
                zip.addFile("Director.app/Contents/Resources/item-" + QByteArray::number(index),
                            QByteArray(5000 + index, char('a' + index % 26)));
        }));
        QTest::newRow("written in pieces") << bundle << true << Streamed::unpacked;
        QTest::newRow("abandoned halfway")
            << bundle.left(bundle.size() / 2) << false << Streamed::refused;
        // Completed from the directory once it is there.
        const QList<std::tuple<QByteArray, QByteArray, quint32>> tool{
            {"Tool.app/run", "#!/bin/sh\n", 0100755}, {"Tool.app/Current", "run", 0120777}};
        QTest::newRow("modes and links only in the directory")
            << directoryOnlyModes(tool) << true << Streamed::unpacked;
        QTest::newRow("entry left out of the directory")
            << directoryOnlyModes(tool, true) << true << Streamed::needsWholeArchive;
    }

    void unpacksWhileWritten() {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, completes);
        QFETCH(Streamed, expected);
        const QString path = m_folder.filePath(u"growing.zip"_s);
        writeFile(path, {});
        GrowingFile growth;
        std::thread download([&] {
            QFile file(path);
            if (!file.open(QIODevice::Append))
                return growth.abandon();
            for (qsizetype offset = 0; offset < bytes.size(); offset += 7000) {
                file.write(bytes.mid(offset, 7000));
                file.flush();
                QThread::usleep(200);
            }
            file.close();
            completes ? growth.finish() : growth.abandon();
        });
        const Streamed streamed = LibarchiveExtractor().extractGrowing(path, growth, m_destination);
        download.join();
        QCOMPARE(streamed, expected);
        if (streamed != Streamed::unpacked)
            return;
        // What the whole archive gives, unpacked with its directory.
        const QString whole = m_folder.filePath(u"whole"_s);
        QVERIFY(QDir().mkpath(whole));
        QVERIFY(LibarchiveExtractor().extract(path, whole));
        QCOMPARE(treeOf(m_destination), treeOf(whole));
        if (QFileInfo::exists(whole + u"/Tool.app"_s)) {
            QVERIFY(QFileInfo(m_destination + u"/Tool.app/Current"_s).isSymLink());
            QVERIFY(QFileInfo(m_destination + u"/Tool.app/run"_s).isExecutable());
            return;
        }
        QVERIFY(QFileInfo(m_destination + u"/Director.app/Contents/Current"_s).isSymLink());
    }

    void judgesLinkTargetsByTheirText_data() {
        QTest::addColumn<QByteArray>("entry");
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<bool>("inside");
        QTest::newRow("sibling") << QByteArray("a/b/link") << QByteArray("c") << true;
        QTest::newRow("up within") << QByteArray("a/b/link") << QByteArray("../c") << true;
        QTest::newRow("up to the root") << QByteArray("a/link") << QByteArray("..") << true;
        QTest::newRow("up and out") << QByteArray("a/link") << QByteArray("../..") << false;
        QTest::newRow("out and back") << QByteArray("link") << QByteArray("../x/link") << false;
        QTest::newRow("absolute") << QByteArray("a/link") << QByteArray("/a") << false;
        QTest::newRow("empty") << QByteArray("a/link") << QByteArray() << false;
    }

    void judgesLinkTargetsByTheirText() {
        QFETCH(QByteArray, entry);
        QFETCH(QByteArray, target);
        QFETCH(bool, inside);
        QCOMPARE(LibarchiveExtractor::linkStaysInside(entry, target), inside);
    }
};

QTEST_GUILESS_MAIN(ArchiveExtractorTest)
#include "ArchiveExtractorTest.moc"
