#pragma once

#include "platform/LauncherInstance.h"

#include <QLocalServer>
#include <QString>
#include <memory>

class FreedesktopApplication;

// The launcher's claim as a local socket in the user's runtime folder, named after the settings
// folder: a launcher run with a home of its own (the sample run) is a launcher of its own. On the
// session bus it is org.freedesktop.Application under the desktop entry's name, which is one per
// user: addresses opened there go to whichever launcher's sign-in waits, through its socket.
class LocalSocketLauncherInstance : public LauncherInstance {
    Q_OBJECT

public:
    static QString defaultSocketPath();

    explicit LocalSocketLauncherInstance(QString socketPath = defaultSocketPath());
    ~LocalSocketLauncherInstance() override;

    bool claim() override;
    void publishToDesktop() override;

private:
    QString m_socketPath;
    std::unique_ptr<QLocalServer> m_server;
    std::unique_ptr<FreedesktopApplication> m_application;
};
