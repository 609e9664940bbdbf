#pragma once

#include <QDir>
#include <QFile>
#include <QList>
#include <QTemporaryDir>

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
