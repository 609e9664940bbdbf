#include "BundleBuilder.h"
#include "foundation/LaunchError.h"
#include "platform/linux/RenameExchangeReplacement.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QLoggingCategory>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <csignal>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int filesPerBundle = 120;

// A bundle whose every file says which version it belongs to, with an executable and, where the
// file system has links, a link.
void writeVersion(const QString& bundle, const QByteArray& version, bool withLink = true) {
    for (int index = 0; index < filesPerBundle; ++index)
        writeFile(bundle + u"/Contents/Resources/part-%1"_s.arg(index),
                  version + QByteArray(8000, '.'));
    writeFile(bundle + u"/Contents/MacOS/run"_s, version);
    QFile::setPermissions(bundle + u"/Contents/MacOS/run"_s,
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    if (withLink)
        QFile::link(u"MacOS"_s, bundle + u"/Contents/Programs"_s);
}

// The version every file of the bundle agrees on; empty when they disagree or any is missing.
QByteArray wholeVersion(const QString& bundle, bool withLink = true) {
    QFile executable(bundle + u"/Contents/MacOS/run"_s);
    if (!executable.open(QIODevice::ReadOnly) ||
        !executable.permissions().testFlag(QFile::ExeOwner))
        return {};
    const QByteArray version = executable.readAll();
    if (withLink && QFileInfo(bundle + u"/Contents/Programs"_s).symLinkTarget().isEmpty())
        return {};
    int count = 0;
    QDirIterator parts(bundle + u"/Contents/Resources"_s, QDir::Files);
    while (parts.hasNext()) {
        QFile part(parts.next());
        if (!part.open(QIODevice::ReadOnly) ||
            !part.readAll().startsWith(QByteArray(version + '.')))
            return {};
        ++count;
    }
    return count == filesPerBundle ? version : QByteArray();
}

// Work folders and journals.
QStringList workFolders(const QString& folder) {
    return QDir(folder).entryList({QLatin1String(BundleReplacement::workFolderPrefix) + u'*'},
                                  QDir::Dirs | QDir::Files | QDir::Hidden | QDir::System);
}

dev_t deviceOf(const QString& path) {
    struct stat status {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_dev : 0;
}

using Exchange = RenameExchangeReplacement::Exchange;
using Step = RenameExchangeReplacement::Step;

// A FAT file system of its own, loop-mounted while it lives; not mounted where this machine cannot
// (not root, no mkfs.vfat from dosfstools, no FAT in the kernel), and then whyNot says so.
class FatMount {
public:
    explicit FatMount(const QString& folder)
        : m_image(folder + u"/fat.img"_s)
        , m_point(folder + u"/fat"_s) {
        if (::geteuid() != 0) {
            whyNot = u"not root"_s;
            return;
        }
        QFile image(m_image);
        if (!image.open(QIODevice::WriteOnly) || !image.resize(64 * 1024 * 1024))
            return;
        image.close();
        QDir().mkpath(m_point);
        QProcess make;
        make.start(u"mkfs.vfat"_s, {m_image});
        if (!make.waitForFinished() || make.exitCode() != 0) {
            whyNot = u"mkfs.vfat failed or is missing"_s;
            return;
        }
        QProcess mount;
        mount.start(u"mount"_s, {u"-o"_s, u"loop"_s, m_image, m_point});
        m_mounted = mount.waitForFinished() && mount.exitCode() == 0;
        if (!m_mounted)
            whyNot = QString::fromLocal8Bit(mount.readAllStandardError()).trimmed();
    }
    ~FatMount() {
        if (m_mounted)
            QProcess::execute(u"umount"_s, {m_point});
    }
    QString path() const { return m_mounted ? m_point : QString(); }

    QString whyNot;

private:
    QString m_image;
    QString m_point;
    bool m_mounted = false;
};

// A replacement child with its output read line by line: the steps it has finished.
bool waitForStep(QProcess& process, Step step) {
    const QByteArray line = QByteArray::number(int(step));
    while (process.waitForReadyRead(20000)) {
        while (process.canReadLine()) {
            if (process.readLine().trimmed() == line)
                return true;
        }
    }
    return false;
}

} // namespace

// The installed path holds a whole bundle, old or new, at every instant of a replacement; where
// the file system cannot exchange two names, at every instant after the next start.
class BundleReplacementTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    QString m_applications;
    QString m_installed;

private Q_SLOTS:
    void initTestCase() {
        // Each recovery says what it did; hundreds of them here.
        QLoggingCategory::setFilterRules(u"vantor.platform.replacement.info=false"_s);
    }

    void init() {
        QVERIFY(m_folder.isValid());
        m_applications = m_folder.filePath(u"Applications"_s);
        QDir(m_applications).removeRecursively();
        m_installed = m_applications + u"/Vantor Director.app"_s;
        writeVersion(m_installed, "old");
    }

    void exchangesAndKeepsTheOldBundleAsBackup_data() {
        QTest::addColumn<QString>("where");
        QTest::addColumn<Exchange>("exchange");
        QTest::newRow("same file system") << u"same"_s << Exchange::whenSupported;
        // /dev/shm is a memory file system on most machines: the update must be copied over.
        QTest::newRow("other file system") << u"other"_s << Exchange::whenSupported;
        QTest::newRow("two renames") << u"same"_s << Exchange::never;
        // No links on FAT, and no exchange before Linux 6.0.
        QTest::newRow("FAT") << u"fat"_s << Exchange::whenSupported;
    }

    void exchangesAndKeepsTheOldBundleAsBackup() {
        QFETCH(QString, where);
        QFETCH(Exchange, exchange);
        QString installed = m_installed;
        QString sourceFolder = m_folder.filePath(u"download"_s);
        std::optional<FatMount> fat;
        if (where == u"other"_s) {
            sourceFolder = u"/dev/shm"_s;
            if (!QFileInfo(sourceFolder).isWritable() ||
                deviceOf(sourceFolder) == deviceOf(m_applications))
                QSKIP("no second writable file system here");
        } else if (where == u"fat"_s) {
            fat.emplace(m_folder.path());
            if (fat->path().isEmpty())
                QSKIP(qPrintable(u"no FAT file system here: "_s + fat->whyNot));
            installed = fat->path() + u"/Applications/Vantor Director.app"_s;
            sourceFolder = fat->path() + u"/download"_s;
        }
        const bool links = where != u"fat"_s;
        writeVersion(installed, "old", links);
        QVERIFY(QDir().mkpath(sourceFolder));
        QTemporaryDir source(sourceFolder + u"/replacement-XXXXXX"_s);
        QVERIFY(source.isValid());
        const QString replacement = source.filePath(u"Vantor Director.app"_s);
        writeVersion(replacement, "new", links);

        const QString workFolder = RenameExchangeReplacement({}, exchange)
                                       .replace(installed, replacement, u"Backup.app"_s);

        QCOMPARE(wholeVersion(installed, links), QByteArray("new"));
        QCOMPARE(wholeVersion(workFolder + u"/Backup.app"_s, links), QByteArray("old"));
        QCOMPARE(QFileInfo(workFolder).absolutePath(), QFileInfo(installed).absolutePath());
        QVERIFY(QFileInfo(workFolder).isHidden());
        // Nothing else stays beside the bundle: no journal.
        QCOMPARE(workFolders(QFileInfo(installed).absolutePath()),
                 QStringList{QFileInfo(workFolder).fileName()});
    }

    void failsWithoutTouchingTheInstalledBundle() {
        try {
            RenameExchangeReplacement().replace(m_installed, m_folder.filePath(u"missing.app"_s),
                                                u"Backup.app"_s);
            QFAIL("a missing replacement was put in place");
        } catch (const LaunchError& error) {
            QCOMPARE(error.domain(), LaunchError::Domain::file);
        }
        QCOMPARE(wholeVersion(m_installed), QByteArray("old"));
        QCOMPARE(workFolders(m_applications), QStringList());
    }

    void removesOnlyItsOwnLeftovers() {
        const QString prefix =
            m_applications + u'/' + QLatin1String(BundleReplacement::workFolderPrefix);
        const QString leftover = prefix + u"8F2E6E2C-5A0B-4C51-9B7E-0E1C2D3A4B5C"_s;
        writeVersion(leftover + u"/Backup.app"_s, "older");
        const QString lookalike = prefix + u"mine"_s;
        QVERIFY(QDir().mkpath(lookalike));
        // Named like a work folder, pointing at someone's files: the link goes, they stay.
        const QString elsewhere = m_folder.filePath(u"elsewhere"_s);
        writeFile(elsewhere + u"/keep"_s, "mine");
        const QString link = prefix + u"0D6A4F43-7E0C-4B9B-8E5C-2B1F5A8C9D01"_s;
        QVERIFY(QFile::link(elsewhere, link));
        // A journal that cannot be read keeps its work folder: it may hold the only copy.
        const QString journaled = prefix + u"5B0E3C1A-9F7D-4E2B-A6C8-3D4F5E6A7B8C"_s;
        writeVersion(journaled + u"/Vantor Director.app"_s, "kept");
        writeFile(journaled + u".journal"_s, "vantor-launch replacement 1\n../x\nBackup.app\n");

        RenameExchangeReplacement::recoverInterrupted(m_applications);
        QVERIFY(!QFileInfo::exists(leftover));
        QVERIFY(QFileInfo::exists(lookalike));
        QVERIFY(!QFileInfo(link).isSymLink());
        QVERIFY(QFileInfo::exists(elsewhere + u"/keep"_s));
        QCOMPARE(wholeVersion(journaled + u"/Vantor Director.app"_s), QByteArray("kept"));
        QCOMPARE(wholeVersion(m_installed), QByteArray("old"));
    }

    // A replacing process killed at points spread over its whole run, later and later until it
    // finishes first: afterwards the installed path holds one whole version (with two renames,
    // once the next start has recovered), and nothing else is left beside it.
    void survivesBeingKilledAnywhere_data() {
        QTest::addColumn<Exchange>("exchange");
        QTest::newRow("exchange") << Exchange::whenSupported;
        QTest::newRow("two renames") << Exchange::never;
    }

    void survivesBeingKilledAnywhere() {
        QFETCH(Exchange, exchange);
        const QString child = QCoreApplication::applicationDirPath() + u"/replacement_child"_s;
        QVERIFY(QFileInfo(child).isExecutable());
        QStringList arguments{u"40"_s};
        if (exchange == Exchange::never)
            arguments.append(u"two-renames"_s);
        QMap<QByteArray, int> kills; // by what the installed path held when the child died
        bool finishedFirst = false;
        for (int delay = 0; !finishedFirst && delay < 10'000; delay += 15) {
            QTemporaryDir source(m_folder.filePath(u"download-XXXXXX"_s));
            QVERIFY(source.isValid());
            const QString replacement = source.filePath(u"Vantor Director.app"_s);
            writeVersion(replacement, "new");
            QDir(m_installed).removeRecursively();
            writeVersion(m_installed, "old");

            QProcess process;
            process.start(child, QStringList{m_installed, replacement} + arguments);
            QVERIFY(process.waitForStarted());
            finishedFirst = process.waitForFinished(delay) && process.exitCode() == 0;
            if (!finishedFirst) {
                ::kill(pid_t(process.processId()), SIGKILL);
                QVERIFY(process.waitForFinished());
            }

            const QByteArray left =
                QFileInfo::exists(m_installed) ? wholeVersion(m_installed) : QByteArray("nothing");
            if (exchange == Exchange::whenSupported)
                QVERIFY2(left == "old" || left == "new",
                         qPrintable(u"killed after %1 ms"_s.arg(delay)));
            RenameExchangeReplacement::recoverInterrupted(m_applications);
            const QByteArray version = wholeVersion(m_installed);
            QVERIFY2(version == "old" || version == "new",
                     qPrintable(u"killed after %1 ms"_s.arg(delay)));
            if (finishedFirst)
                QCOMPARE(version, QByteArray("new"));
            else
                ++kills[left];
            QCOMPARE(workFolders(m_applications), QStringList());
        }
        QVERIFY(finishedFirst);
        QVERIFY(kills.value("old") > 0);
        // With two renames the child must also have died between them.
        QCOMPARE(kills.value("nothing") > 0, exchange == Exchange::never);
        qInfo() << "kills by what was in place:" << kills;
    }

    // Killed right after a step of the two renames: the next start puts in place the bundle the
    // journal leads to, and so does the next replacement before it does its own work.
    void theNextStartOrReplacementPutsItRight_data() {
        QTest::addColumn<Step>("killedAfter");
        QTest::addColumn<bool>("byReplacement");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("journal written, next start")
            << Step::journalWritten << false << QByteArray("old");
        QTest::newRow("moved aside, next start") << Step::movedAside << false << QByteArray("new");
        QTest::newRow("moved in, next start") << Step::movedIn << false << QByteArray("new");
        QTest::newRow("moved aside, next replacement")
            << Step::movedAside << true << QByteArray("newer");
    }

    void theNextStartOrReplacementPutsItRight() {
        QFETCH(Step, killedAfter);
        QFETCH(bool, byReplacement);
        QFETCH(QByteArray, expected);
        QTemporaryDir source(m_folder.filePath(u"download-XXXXXX"_s));
        const QString replacement = source.filePath(u"new/Vantor Director.app"_s);
        writeVersion(replacement, "new");
        QProcess process;
        process.start(
            QCoreApplication::applicationDirPath() + u"/replacement_child"_s,
            {m_installed, replacement, u"60000@%1"_s.arg(int(killedAfter)), u"two-renames"_s});
        QVERIFY(waitForStep(process, killedAfter));
        ::kill(pid_t(process.processId()), SIGKILL);
        QVERIFY(process.waitForFinished());

        if (byReplacement) {
            const QString newer = source.filePath(u"newer/Vantor Director.app"_s);
            writeVersion(newer, "newer");
            QDir(RenameExchangeReplacement({}, Exchange::never)
                     .replace(m_installed, newer, u"Backup.app"_s))
                .removeRecursively();
        } else {
            RenameExchangeReplacement::recoverInterrupted(m_applications);
        }
        QCOMPARE(wholeVersion(m_installed), expected);
        QCOMPARE(workFolders(m_applications), QStringList());
    }
};

QTEST_GUILESS_MAIN(BundleReplacementTest)
#include "BundleReplacementTest.moc"
