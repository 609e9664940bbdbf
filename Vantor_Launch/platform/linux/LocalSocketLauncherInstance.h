#pragma once

#include "platform/LauncherInstance.h"

#include <QLocalServer>
#include <QString>
#include <memory>

// The launcher's claim as a local socket in the user's runtime folder, named after the settings
// folder: a launcher run with a home of its own (the sample run) is a launcher of its own.
class LocalSocketLauncherInstance : public LauncherInstance {
    Q_OBJECT

public:
    static QString defaultSocketPath();

    explicit LocalSocketLauncherInstance(QString socketPath = defaultSocketPath());
    ~LocalSocketLauncherInstance() override;

    bool claim() override;

private:
    QString m_socketPath;
    std::unique_ptr<QLocalServer> m_server;
};
