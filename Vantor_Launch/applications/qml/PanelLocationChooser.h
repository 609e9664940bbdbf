#pragma once

#include "platform/ApplicationLocationChooser.h"

#include <QObject>
#include <QUrl>
#include <QtQmlIntegration>
#include <memory>

// The location chooser of the windows: each request is shown by the main window's folder panel
// (ApplicationLocationPanel), which hands back the folder the user accepted or the cancellation.
// Only application bundles are answers: accepting another folder opens the panel again inside it,
// as a file browser steps into a folder.
class PanelLocationChooser : public QObject, public ApplicationLocationChooser {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the application entry")
    Q_PROPERTY(QString title READ title NOTIFY requestChanged)
    Q_PROPERTY(QString message READ message NOTIFY requestChanged)
    Q_PROPERTY(QString prompt READ prompt NOTIFY requestChanged)
    Q_PROPERTY(bool choosing READ choosing NOTIFY requestChanged)
    // Where the panel opens.
    Q_PROPERTY(QUrl folder READ folder NOTIFY requestChanged)

public:
    explicit PanelLocationChooser(QObject* parent = nullptr);
    ~PanelLocationChooser() override;

    QCoro::Task<std::optional<QUrl>> chooseApplication(Request request) override;

    QString title() const { return m_request.title; }
    QString message() const { return m_request.message; }
    QString prompt() const { return m_request.prompt; }
    bool choosing() const { return m_pending != nullptr; }
    QUrl folder() const { return m_folder; }

    // The panel's answers.
    Q_INVOKABLE void accept(const QUrl& folder);
    Q_INVOKABLE void cancel();

    // A local folder whose name ends in ".app", in any case.
    static bool isApplicationBundle(const QUrl& folder);

Q_SIGNALS:
    void requestChanged();
    // The panel should show the current request (again).
    void panelRequested();
    void answered();

private:
    struct Pending {
        std::optional<std::optional<QUrl>> answer;
    };

    void finish(std::optional<QUrl> answer);

    Request m_request;
    QUrl m_folder;
    std::shared_ptr<Pending> m_pending;
};
