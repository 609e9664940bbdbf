#include "platform/linux/LinuxWorkspace.h"

// Placeholder until the process watch lands: nothing is found running and nothing opens.
std::optional<QUrl> LinuxWorkspace::urlForApplication(const QString&) const {
    return std::nullopt;
}
QList<RunningApplication> LinuxWorkspace::runningApplications(const QString&) const {
    return {};
}
bool LinuxWorkspace::terminate(const RunningApplication&) {
    return false;
}
void LinuxWorkspace::openApplication(const QUrl&) {}
QCoro::Task<> LinuxWorkspace::openURL(QUrl, QUrl, OpenOptions) {
    co_return;
}
void LinuxWorkspace::revealInFileBrowser(const QUrl&) {}
