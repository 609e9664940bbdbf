#include "PanelLocationChooser.h"

#include <QCoroSignal>
#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

// Where discovery looks for applications, or the home folder when neither folder exists.
QUrl startFolder() {
    for (const QString& folder :
         {u"/Applications"_s, QDir(QDir::homePath()).filePath(u"Applications"_s)}) {
        if (QFileInfo(folder).isDir())
            return QUrl::fromLocalFile(folder);
    }
    return QUrl::fromLocalFile(QDir::homePath());
}

} // namespace

PanelLocationChooser::PanelLocationChooser(QObject* parent)
    : QObject(parent) {}

PanelLocationChooser::~PanelLocationChooser() = default;

QCoro::Task<std::optional<QUrl>> PanelLocationChooser::chooseApplication(Request request) {
    // One panel at a time: a newer request replaces an unanswered one, which counts as cancelled.
    finish(std::nullopt);
    const auto pending = std::make_shared<Pending>();
    m_pending = pending;
    m_request = std::move(request);
    m_folder = startFolder();
    Q_EMIT requestChanged();
    Q_EMIT panelRequested();
    while (!pending->answer)
        co_await qCoro(this, &PanelLocationChooser::answered);
    co_return *pending->answer;
}

void PanelLocationChooser::accept(const QUrl& folder) {
    if (!m_pending)
        return;
    if (isApplicationBundle(folder)) {
        finish(QUrl::fromLocalFile(QDir::cleanPath(folder.toLocalFile())));
        return;
    }
    m_folder = folder;
    Q_EMIT requestChanged();
    // Once the panel has closed after this answer, unless the request ended meanwhile.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_pending)
                Q_EMIT panelRequested();
        },
        Qt::QueuedConnection);
}

void PanelLocationChooser::cancel() {
    finish(std::nullopt);
}

bool PanelLocationChooser::isApplicationBundle(const QUrl& folder) {
    if (!folder.isLocalFile())
        return false;
    const QString name = QFileInfo(QDir::cleanPath(folder.toLocalFile())).fileName();
    return name.size() > 4 && name.endsWith(u".app"_s, Qt::CaseInsensitive);
}

void PanelLocationChooser::finish(std::optional<QUrl> answer) {
    if (!m_pending)
        return;
    m_pending->answer = std::move(answer);
    m_pending.reset();
    m_request = {};
    Q_EMIT requestChanged();
    Q_EMIT answered();
}
