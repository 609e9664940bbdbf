#pragma once

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QList>
#include <QTemporaryDir>

// The files under folder whose bytes hold any of these secrets: none, wherever a test looks.
inline QStringList filesHolding(const QString& folder, const QByteArrayList& secrets) {
    QStringList holding;
    QDirIterator files(folder, QDir::Files | QDir::Hidden | QDir::System,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        for (const QByteArray& secret : secrets)
            if (!secret.isEmpty() && bytes.contains(secret) && !holding.contains(file.fileName()))
                holding.append(file.fileName());
    }
    return holding;
}

// A home of the test's own: HOME, the desktop's folders and TMPDIR point into it, owner-only as a
// desktop session makes them, so that nothing reads or writes the real user's files. The
// variables are set back when it goes, so end one home before making the next: a new home would
// otherwise lie in the old one's TMPDIR and go with it.
class ThrowawayHome {
public:
    ThrowawayHome() {
        set("HOME", m_root.path());
        for (const auto& [variable, folder] : {std::pair{"XDG_RUNTIME_DIR", "runtime"},
                                               {"XDG_DATA_HOME", ".local/share"},
                                               {"XDG_CONFIG_HOME", ".config"},
                                               {"XDG_CACHE_HOME", ".cache"},
                                               {"TMPDIR", "tmp"}}) {
            const QString path = filePath(QString::fromLatin1(folder));
            QDir().mkpath(path);
            QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            set(variable, path);
        }
    }
    ~ThrowawayHome() {
        for (const auto& [variable, value] : m_previous) {
            if (value.isNull())
                qunsetenv(variable);
            else
                qputenv(variable, value);
        }
    }
    ThrowawayHome(const ThrowawayHome&) = delete;
    ThrowawayHome& operator=(const ThrowawayHome&) = delete;

    QString path() const { return m_root.path(); }
    QString filePath(const QString& name) const { return m_root.filePath(name); }

private:
    void set(const char* variable, const QString& path) {
        m_previous.append(
            {variable, qEnvironmentVariableIsSet(variable) ? qgetenv(variable) : QByteArray()});
        qputenv(variable, QFile::encodeName(path));
    }

    QTemporaryDir m_root;
    QList<std::pair<const char*, QByteArray>> m_previous;
};
