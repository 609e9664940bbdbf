#pragma once

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

// A home of the test's own: HOME, the desktop's folders and TMPDIR point into it, owner-only as a
// desktop session makes them, so that nothing reads or writes the real user's files.
class ThrowawayHome {
public:
    ThrowawayHome() {
        qputenv("HOME", QFile::encodeName(m_root.path()));
        for (const auto& [variable, folder] : {std::pair{"XDG_RUNTIME_DIR", "runtime"},
                                               {"XDG_DATA_HOME", ".local/share"},
                                               {"XDG_CONFIG_HOME", ".config"},
                                               {"XDG_CACHE_HOME", ".cache"},
                                               {"TMPDIR", "tmp"}}) {
            const QString path = filePath(QString::fromLatin1(folder));
            QDir().mkpath(path);
            QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            qputenv(variable, QFile::encodeName(path));
        }
    }

    QString path() const { return m_root.path(); }
    QString filePath(const QString& name) const { return m_root.filePath(name); }

private:
    QTemporaryDir m_root;
};
