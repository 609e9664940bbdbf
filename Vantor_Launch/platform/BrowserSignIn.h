#pragma once

#include "foundation/LaunchError.h"

#include <QCoroTask>
#include <QObject>
#include <QString>
#include <QUrl>
#include <memory>

// The web sign-in window: shows the website's authorisation page in a browser that shares the
// system browser's session, and waits for the website to send the user back to the launcher.
class BrowserSignIn : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // Completes with the first URL of the callback scheme that reaches the launcher. Throws the
    // URL error cancelled when cancel() ends the wait, cannotLoadFromNetwork when no browser
    // could be shown.
    virtual QCoro::Task<QUrl> authenticate(QUrl url, QString callbackScheme) = 0;
    // Ends a waiting authenticate() with the cancellation error; nothing when none waits.
    virtual void cancel() = 0;

    bool isWaiting() const { return m_waiting; }

Q_SIGNALS:
    void waitingChanged();

protected:
    void setWaiting(bool waiting) {
        if (m_waiting == waiting)
            return;
        m_waiting = waiting;
        Q_EMIT waitingChanged();
    }

private:
    bool m_waiting = false;
};

namespace PlatformServices {

// The sign-in window of the desktop this program was built for.
std::shared_ptr<BrowserSignIn> makeBrowserSignIn();
// In a launcher process started by the browser for a callback address: hands the address to the
// launcher whose sign-in waits for it. False when no sign-in waits.
bool handOverSignInCallback(const QUrl& callback);

} // namespace PlatformServices
