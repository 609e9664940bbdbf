#pragma once

#include "platform/Workspace.h"

#include <QHash>
#include <optional>

class ProcessWatch;

// Applications on Linux are bundle folders too; a process belongs to a bundle when its executable
// lies in the bundle's "Contents/MacOS/". Bundles are compared by their paths with symbolic links
// resolved, as the kernel reports executables. Launches and terminations are watched only while
// someone listens for them.
class LinuxWorkspace : public Workspace {
    Q_OBJECT

public:
    // folderOpener opens a folder in the file browser when no file manager answers on D-Bus.
    explicit LinuxWorkspace(QString folderOpener = QStringLiteral("xdg-open"),
                            QObject* parent = nullptr);
    ~LinuxWorkspace() override;

    std::optional<QUrl> urlForApplication(const QString& bundleIdentifier) const override;
    QList<RunningApplication> runningApplications(const QString& bundleIdentifier) const override;
    QCoro::Task<QList<RunningApplication>>
    findRunningApplications(QString bundleIdentifier) const override;
    bool terminate(const RunningApplication& application) override;
    void openApplication(const QUrl& bundle) override;
    QCoro::Task<> openURL(QUrl url, QUrl application, OpenOptions options) override;
    void revealInFileBrowser(const QUrl& bundle) override;

protected:
    void connectNotify(const QMetaMethod& signal) override;
    void disconnectNotify(const QMetaMethod& signal) override;

private:
    void openFolder(const QString& folder) const;
    // Whether some process runs from this very bundle, however the path to it is spelt.
    bool isRunning(const QUrl& bundle) const;
    std::optional<QString> identifierOf(qint64 processId, const QString& bundlePath) const;
    // The answer from the process table as last looked at.
    QList<RunningApplication> runningAsLastSeen(const QString& bundleIdentifier) const;

    // The bundle identifier of each bundle process, read from its Info.plist once per process
    // instead of at every question (discovery asks several in a row).
    struct KnownProcess {
        QString bundlePath;
        std::optional<QString> bundleIdentifier;
    };
    mutable QHash<qint64, KnownProcess> m_identifiers;

    QString m_folderOpener;
    ProcessWatch* m_watch;
};
