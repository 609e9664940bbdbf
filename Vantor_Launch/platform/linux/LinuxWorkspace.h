#pragma once

#include "platform/Workspace.h"

// Applications on Linux are bundle folders too; a process belongs to a bundle when its executable
// lies in the bundle's "Contents/MacOS/".
class LinuxWorkspace : public Workspace {
    Q_OBJECT

public:
    using Workspace::Workspace;

    std::optional<QUrl> urlForApplication(const QString& bundleIdentifier) const override;
    QList<RunningApplication> runningApplications(const QString& bundleIdentifier) const override;
    bool terminate(const RunningApplication& application) override;
    void openApplication(const QUrl& bundle) override;
    QCoro::Task<> openURL(QUrl url, QUrl application, OpenOptions options) override;
    void revealInFileBrowser(const QUrl& bundle) override;
};
