#pragma once

#include <QObject>
#include <memory>

// One launcher per user and settings. The first start claims it and hears of every later start;
// a later start asks the first to show itself and ends, so that opening the launcher again (or a
// stray sign-in address from the browser) never leaves two launchers side by side.
class LauncherInstance : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // True when this process is the one launcher from now on; false when a running launcher
    // answered and was asked to show itself.
    virtual bool claim() = 0;
    // Once claimed: lets the desktop reach this launcher by its application id, to bring it
    // forward or to open a sign-in callback address with it. Best effort.
    virtual void publishToDesktop() = 0;

Q_SIGNALS:
    // A later start asked this launcher to show its window.
    void activationRequested();
};

namespace PlatformServices {

std::unique_ptr<LauncherInstance> makeLauncherInstance();

} // namespace PlatformServices
