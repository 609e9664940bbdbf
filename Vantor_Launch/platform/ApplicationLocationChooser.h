#pragma once

#include <QCoroTask>
#include <QString>
#include <QUrl>
#include <optional>

// The modal panel in which the user points at an application bundle.
class ApplicationLocationChooser {
public:
    struct Request {
        QString title;
        QString message;
        QString prompt;
    };

    virtual ~ApplicationLocationChooser() = default;
    // None when the user cancels.
    virtual QCoro::Task<std::optional<QUrl>> chooseApplication(Request request) = 0;
};
