#pragma once

#include <QCoroTask>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <optional>

// A running process of an application bundle.
struct RunningApplication {
    qint64 processId = 0;
    QString bundleIdentifier;
    QUrl bundleURL;
    friend bool operator==(const RunningApplication&, const RunningApplication&) = default;
};

// The desktop's view of applications: where they are, which run, and how to open them.
class Workspace : public QObject {
    Q_OBJECT

public:
    struct OpenOptions {
        bool activates = true;
        bool allowsRunningApplicationSubstitution = true;
    };

    using QObject::QObject;

    virtual std::optional<QUrl> urlForApplication(const QString& bundleIdentifier) const = 0;
    virtual QList<RunningApplication>
    runningApplications(const QString& bundleIdentifier) const = 0;
    // The same answer, without blocking the caller's thread where finding it reads /proc.
    virtual QCoro::Task<QList<RunningApplication>>
    findRunningApplications(QString bundleIdentifier) const {
        co_return runningApplications(bundleIdentifier);
    }
    // A polite request to quit; false when it could not be sent.
    virtual bool terminate(const RunningApplication& application) = 0;
    // Fire and forget: the launch notification reports the outcome.
    virtual void openApplication(const QUrl& bundle) = 0;
    // Throws LaunchError when the application cannot be started.
    virtual QCoro::Task<> openURL(QUrl url, QUrl application, OpenOptions options) = 0;
    virtual void revealInFileBrowser(const QUrl& bundle) = 0;

Q_SIGNALS:
    // Any application of the desktop started or ended, not only the managed ones.
    void applicationLaunched();
    void applicationTerminated();
};
