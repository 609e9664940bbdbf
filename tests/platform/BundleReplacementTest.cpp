#include "BundleBuilder.h"
#include "core/LaunchError.h"
#include "platform/linux/RenameExchangeReplacement.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <csignal>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int filesPerBundle = 120;

// A bundle whose every file says which version it belongs to, with a link and an executable.
void writeVersion(const QString& bundle, const QByteArray& version) {
    for (int index = 0; index < filesPerBundle; ++index)
        writeFile(bundle + u"/Contents/Resources/part-%1"_s.arg(index),
                  version + QByteArray(8000, '.'));
    writeFile(bundle + u"/Contents/MacOS/run"_s, version);
    QFile::setPermissions(bundle + u"/Contents/MacOS/run"_s,
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile::link(u"MacOS"_s, bundle + u"/Contents/Programs"_s);
}

// The version every file of the bundle agrees on; empty when they disagree or any is missing.
QByteArray wholeVersion(const QString& bundle) {
    QFile executable(bundle + u"/Contents/MacOS/run"_s);
    if (!executable.open(QIODevice::ReadOnly) ||
        !executable.permissions().testFlag(QFile::ExeOwner))
        return {};
    const QByteArray version = executable.readAll();
    if (QFileInfo(bundle + u"/Contents/Programs"_s).symLinkTarget().isEmpty())
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

QStringList workFolders(const QString& folder) {
    return QDir(folder).entryList({QLatin1String(BundleReplacement::workFolderPrefix) + u'*'},
                                  QDir::Dirs | QDir::Hidden);
}

dev_t deviceOf(const QString& path) {
    struct stat status {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_dev : 0;
}

} // namespace

// The installed path holds a whole bundle, old or new, at every instant of a replacement.
class BundleReplacementTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_folder;
    QString m_applications;
    QString m_installed;

private Q_SLOTS:
    void init() {
        QVERIFY(m_folder.isValid());
        m_applications = m_folder.filePath(u"Applications"_s);
        QDir(m_applications).removeRecursively();
        m_installed = m_applications + u"/Vantor Director.app"_s;
        writeVersion(m_installed, "old");
    }

    void exchangesAndKeepsTheOldBundleAsBackup_data() {
        QTest::addColumn<QString>("sourceFolder");
        QTest::newRow("same file system") << m_folder.filePath(u"download"_s);
        // /dev/shm is a memory file system on most machines: the update must be copied over.
        QTest::newRow("other file system") << u"/dev/shm"_s;
    }

    void exchangesAndKeepsTheOldBundleAsBackup() {
        QFETCH(QString, sourceFolder);
        if (sourceFolder.startsWith(u"/dev/shm"_s) &&
            (!QFileInfo(sourceFolder).isWritable() ||
             deviceOf(sourceFolder) == deviceOf(m_applications)))
            QSKIP("no second writable file system here");
        QVERIFY(QDir().mkpath(sourceFolder));
        QTemporaryDir source(sourceFolder + u"/replacement-XXXXXX"_s);
        QVERIFY(source.isValid());
        const QString replacement = source.filePath(u"Vantor Director.app"_s);
        writeVersion(replacement, "new");

        const QString workFolder =
            RenameExchangeReplacement().replace(m_installed, replacement, u"Backup.app"_s);

        QCOMPARE(wholeVersion(m_installed), QByteArray("new"));
        QCOMPARE(wholeVersion(workFolder + u"/Backup.app"_s), QByteArray("old"));
        QCOMPARE(QFileInfo(workFolder).absolutePath(), QFileInfo(m_installed).absolutePath());
        QVERIFY(QFileInfo(workFolder).isHidden());
    }

    void failsWithoutTouchingTheInstalledBundle() {
        bool failed = false;
        try {
            RenameExchangeReplacement().replace(m_installed, m_folder.filePath(u"missing.app"_s),
                                                u"Backup.app"_s);
        } catch (const LaunchError& error) {
            failed = error.domain() == LaunchError::Domain::file;
        }
        QVERIFY(failed);
        QCOMPARE(wholeVersion(m_installed), QByteArray("old"));
        QCOMPARE(workFolders(m_applications), QStringList());
    }

    void removesOnlyItsOwnLeftovers() {
        const QString leftover = m_applications + u'/' +
                                 QLatin1String(BundleReplacement::workFolderPrefix) +
                                 u"8F2E6E2C-5A0B-4C51-9B7E-0E1C2D3A4B5C"_s;
        writeVersion(leftover + u"/Backup.app"_s, "older");
        const QString lookalike =
            m_applications + u'/' + QLatin1String(BundleReplacement::workFolderPrefix) + u"mine"_s;
        QVERIFY(QDir().mkpath(lookalike));

        RenameExchangeReplacement::removeLeftovers(m_installed);
        QVERIFY(!QFileInfo::exists(leftover));
        QVERIFY(QFileInfo::exists(lookalike));
        QCOMPARE(wholeVersion(m_installed), QByteArray("old"));
    }

    // A replacing process killed at points spread over its whole run, later and later until it
    // finishes first: afterwards the installed path always holds one whole version, and the next
    // replacement clears what was left.
    void survivesBeingKilledAnywhere() {
        const QString child = QCoreApplication::applicationDirPath() + u"/replacement_child"_s;
        QVERIFY(QFileInfo(child).isExecutable());
        int killedBeforeExchange = 0;
        int killedAfterExchange = 0;
        bool finishedFirst = false;
        for (int delay = 0; !finishedFirst && delay < 10'000; delay += 15) {
            QTemporaryDir source(m_folder.filePath(u"download-XXXXXX"_s));
            QVERIFY(source.isValid());
            const QString replacement = source.filePath(u"Vantor Director.app"_s);
            writeVersion(replacement, "new");
            QDir(m_installed).removeRecursively();
            writeVersion(m_installed, "old");

            QProcess process;
            process.start(child, {m_installed, replacement, u"40"_s});
            QVERIFY(process.waitForStarted());
            finishedFirst = process.waitForFinished(delay) && process.exitCode() == 0;
            if (!finishedFirst) {
                ::kill(pid_t(process.processId()), SIGKILL);
                QVERIFY(process.waitForFinished());
            }

            const QByteArray version = wholeVersion(m_installed);
            QVERIFY2(version == "old" || version == "new",
                     qPrintable(u"killed after %1 ms"_s.arg(delay)));
            if (!finishedFirst)
                (version == "old" ? killedBeforeExchange : killedAfterExchange)++;
            else
                QCOMPARE(version, QByteArray("new"));

            RenameExchangeReplacement::removeLeftovers(m_installed);
            QCOMPARE(workFolders(m_applications), QStringList());
        }
        QVERIFY(finishedFirst);
        QVERIFY(killedBeforeExchange > 0);
        qInfo() << "kills before the exchange:" << killedBeforeExchange
                << "after:" << killedAfterExchange;
    }
};

QTEST_GUILESS_MAIN(BundleReplacementTest)
#include "BundleReplacementTest.moc"
