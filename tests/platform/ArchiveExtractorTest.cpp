#include "BundleBuilder.h"
#include "ZipWriter.h"
#include "platform/linux/LibarchiveExtractor.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <functional>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

using ArchiveContents = std::function<void(ZipWriter&)>;
Q_DECLARE_METATYPE(ArchiveContents)

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

    void refusesWhatWouldEscape_data() {
        QTest::addColumn<ArchiveContents>("contents");
        QTest::newRow("parent folder entry") << ArchiveContents([](ZipWriter& zip) {
            zip.addFile("Director.app/Contents/Info.plist", "x");
            zip.addFile("../escaped", "x");
        });
        QTest::newRow("parent folder inside a name") << ArchiveContents(
            [](ZipWriter& zip) { zip.addFile("Director.app/../../escaped", "x"); });
        QTest::newRow("absolute entry") << ArchiveContents([this](ZipWriter& zip) {
            zip.addFile(QFile::encodeName(m_outside + u"/escaped"_s), "x");
        });
        QTest::newRow("link to a parent folder") << ArchiveContents(
            [](ZipWriter& zip) { zip.addSymlink("Director.app/Contents/escaped", "../../../.."); });
        QTest::newRow("chain of links that leaves") << ArchiveContents([](ZipWriter& zip) {
            zip.addSymlink("here", ".");
            zip.addSymlink("escaped", "here/../x");
        });
        // "inner-sibling" begins with the destination's own name, so only a comparison that
        // ends the destination with a separator tells the two apart.
        QTest::newRow("chain of links into a sibling of a similar name")
            << ArchiveContents([this](ZipWriter& zip) {
                   QVERIFY(QDir().mkpath(m_outside + u"/inner-sibling"_s));
                   zip.addSymlink("here", ".");
                   zip.addSymlink("escaped", "here/../inner-sibling");
               });
        QTest::newRow("file written through a link") << ArchiveContents([](ZipWriter& zip) {
            zip.addDirectory("Director.app/Contents");
            zip.addSymlink("Director.app/Current", "Contents");
            zip.addFile("Director.app/Current/Info.plist", "x");
        });
    }

    void refusesWhatWouldEscape() {
        QFETCH(ArchiveContents, contents);
        QVERIFY(!LibarchiveExtractor().extract(archiveOf(contents), m_destination));
        QStringList outside =
            QDir(m_outside).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
        outside.removeOne(u"inner-sibling"_s); // the decoy some rows place there
        QCOMPARE(outside, QStringList{u"inner"_s});
        QVERIFY(!QFile::exists(m_folder.filePath(u"escaped"_s)));
    }

    void ceilingsAndDamage_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<qint64>("byteCeiling");
        QTest::addColumn<qint64>("entryCeiling");
        QTest::addColumn<bool>("extracts");
        const QByteArray three = readFile(archiveOf([](ZipWriter& zip) {
            for (const char* name : {"a", "b", "c"})
                zip.addFile(name, QByteArray(4000, 'x'));
        }));
        QTest::newRow("not an archive")
            << QByteArray("plain text, not a zip") << qint64(1 << 20) << qint64(100) << false;
        QTest::newRow("truncated")
            << three.left(three.size() / 2) << qint64(1 << 20) << qint64(100) << false;
        QTest::newRow("more entries than allowed")
            << three << qint64(1 << 20) << qint64(2) << false;
        QTest::newRow("unpacks larger than allowed")
            << three << qint64(10'000) << qint64(100) << false;
        // Both ceilings are allowances: an archive that reaches one exactly is fine.
        QTest::newRow("exactly the entry ceiling") << three << qint64(1 << 20) << qint64(3) << true;
        QTest::newRow("exactly the byte ceiling") << three << qint64(12'000) << qint64(100) << true;
    }

    void ceilingsAndDamage() {
        QFETCH(QByteArray, bytes);
        QFETCH(qint64, byteCeiling);
        QFETCH(qint64, entryCeiling);
        QFETCH(bool, extracts);
        const QString path = m_folder.filePath(u"given.zip"_s);
        writeFile(path, bytes);
        QCOMPARE(LibarchiveExtractor(byteCeiling, entryCeiling).extract(path, m_destination),
                 extracts);
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
