#pragma once

#include "screens/controls/RoundedImage.h"

#include <QFutureWatcher>

// One screenshot of the detail screen, read once when the view appears (AppScreenshots::load,
// on a worker) and never kept anywhere else.
class ScreenshotImage : public RoundedImage {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString filename READ filename WRITE setFilename NOTIFY filenameChanged)
    // The installed application's bundle path; empty when it is not installed.
    Q_PROPERTY(QString applicationPath READ applicationPath WRITE setApplicationPath NOTIFY
                   applicationPathChanged)

public:
    explicit ScreenshotImage(QQuickItem* parent = nullptr);
    ~ScreenshotImage() override;

    QString filename() const { return m_filename; }
    void setFilename(const QString& filename);
    QString applicationPath() const { return m_applicationPath; }
    void setApplicationPath(const QString& path);

protected:
    void componentComplete() override;

Q_SIGNALS:
    void filenameChanged();
    void applicationPathChanged();

private:
    void reload();

    QString m_filename;
    QString m_applicationPath;
    QFutureWatcher<QImage> m_loading;
};
