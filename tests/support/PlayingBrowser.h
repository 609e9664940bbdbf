#pragma once

#include "platform/linux/LinuxBrowserSignIn.h"

#include <QNetworkAccessManager>
#include <QProcess>
#include <QUrl>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

// Plays the user's browser and desktop. The browser loads the authorisation page and takes the
// website's redirect to the launcher's scheme; the desktop opens that address with the entry that
// the user's "mimeapps.list" names for the scheme: by its Exec line, as xdg-open does, or, when
// the entry is D-Bus activatable, with Open on the session bus, as GIO does.
//
// From the redirect until stopWatching(), every process's command line is read for the address's
// code and state. The desktop itself puts the address on the command line of the program it
// starts, so a glimpse of it there before the program's first instructions is the desktop's doing;
// a process holds it when seen with it again after running for a millisecond, or half a second.
class PlayingBrowser : public QObject {
    Q_OBJECT

public:
    enum class Desktop { execLine, dbusActivation };

    explicit PlayingBrowser(std::shared_ptr<QNetworkAccessManager> network);
    ~PlayingBrowser() override;

    Desktop desktop = Desktop::execLine;
    std::function<QUrl(QUrl)> alterCallback = [](QUrl url) { return url; };
    QList<QUrl> openedPages;
    QUrl handedOver;
    int handlerExitCode = -1;         // of the Exec line's process, once it ended
    std::optional<bool> openAnswered; // whether the launcher answered Open without an error

    // The desktop's sign-in window, showing pages in this browser, with this launcher registered
    // for the callback scheme.
    std::shared_ptr<LinuxBrowserSignIn> signInWindow(const QString& launcher);
    // Ends the watch; the command lines of processes that held the code or the state.
    QStringList stopWatching();
    // Whether the watch saw the launcher started by the hand-over, so that it overlapped it.
    bool sawHandOver() const { return m_sawHandOver; }

private:
    bool open(const QUrl& page);
    void openWithSchemeHandler(const QUrl& address);
    void watchCommandLines(QList<QByteArray> secrets);

    std::shared_ptr<QNetworkAccessManager> m_network;
    std::unique_ptr<QProcess> m_handler;
    std::thread m_watch;
    std::atomic<bool> m_watching = false;
    std::atomic<bool> m_sawHandOver = false;
    std::mutex m_mutex;
    QStringList m_exposures;
};
