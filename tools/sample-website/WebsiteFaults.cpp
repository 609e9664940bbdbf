#include "WebsiteFaults.h"

#include <algorithm>

void WebsiteFaults::failPath(const QString& path, int status) {
    const std::lock_guard lock(m_mutex);
    m_statuses.insert(path, status);
}

void WebsiteFaults::delayPath(const QString& path, int milliseconds) {
    const std::lock_guard lock(m_mutex);
    m_delays.insert(path, milliseconds);
}

void WebsiteFaults::dropPathAfterBytes(const QString& path, qint64 bytes) {
    const std::lock_guard lock(m_mutex);
    m_drops.insert(path, bytes);
}

void WebsiteFaults::dropPathOnceAfterBytes(const QString& path, qint64 bytes) {
    const std::lock_guard lock(m_mutex);
    m_dropsOnce[path].append(bytes);
}

void WebsiteFaults::withholdValidators(const QString& path) {
    const std::lock_guard lock(m_mutex);
    m_withheldValidators.append(path);
}

void WebsiteFaults::publishWrongDigest(const QString& assetID) {
    const std::lock_guard lock(m_mutex);
    m_wrongDigests.append(assetID);
}

void WebsiteFaults::setSessionExpired(bool expired) {
    const std::lock_guard lock(m_mutex);
    m_sessionExpired = expired;
}

void WebsiteFaults::clear() {
    const std::lock_guard lock(m_mutex);
    m_statuses.clear();
    m_delays.clear();
    m_drops.clear();
    m_dropsOnce.clear();
    m_withheldValidators.clear();
    m_wrongDigests.clear();
    m_sessionExpired = false;
}

// A switch aimed at the path wins over one aimed at every path.
template <typename Value>
std::optional<Value> WebsiteFaults::lookUp(const QHash<QString, Value>& table,
                                           const QString& path) const {
    const std::lock_guard lock(m_mutex);
    if (const auto found = table.constFind(path); found != table.cend())
        return *found;
    if (const auto found = table.constFind(everyPath); found != table.cend())
        return *found;
    return std::nullopt;
}

std::optional<int> WebsiteFaults::statusFor(const QString& path) const {
    return lookUp(m_statuses, path);
}

int WebsiteFaults::delayFor(const QString& path) const {
    return lookUp(m_delays, path).value_or(0);
}

qint64 WebsiteFaults::takeDropAfterBytes(const QString& path, qint64 fileOffset) {
    if (const auto drop = lookUp(m_drops, path))
        return std::max<qint64>(*drop - fileOffset, 0);
    const std::lock_guard lock(m_mutex);
    for (const QString& key : {path, everyPath}) {
        const auto found = m_dropsOnce.find(key);
        if (found == m_dropsOnce.end())
            continue;
        const qint64 bytes = found->takeFirst();
        if (found->isEmpty())
            m_dropsOnce.erase(found);
        return bytes;
    }
    return -1;
}

bool WebsiteFaults::withholdsValidators(const QString& path) const {
    const std::lock_guard lock(m_mutex);
    return m_withheldValidators.contains(path) || m_withheldValidators.contains(everyPath);
}

bool WebsiteFaults::publishesWrongDigest(const QString& assetID) const {
    const std::lock_guard lock(m_mutex);
    return m_wrongDigests.contains(assetID) || m_wrongDigests.contains(everyPath);
}

bool WebsiteFaults::sessionExpired() const {
    const std::lock_guard lock(m_mutex);
    return m_sessionExpired;
}

QStringList WebsiteFaults::applyArguments(const QStringList& failures, const QStringList& delays,
                                          const QStringList& drops, const QStringList& dropsOnce) {
    QStringList unreadable;
    const auto each = [&](const QStringList& arguments, const auto& apply) {
        for (const QString& argument : arguments) {
            const qsizetype equals = argument.lastIndexOf(u'=');
            bool isNumber = false;
            const qint64 value = equals > 0 ? argument.mid(equals + 1).toLongLong(&isNumber) : 0;
            if (!isNumber || value < 0)
                unreadable.append(argument);
            else
                apply(argument.left(equals), value);
        }
    };
    each(failures, [this](const QString& path, qint64 value) { failPath(path, int(value)); });
    each(delays, [this](const QString& path, qint64 value) { delayPath(path, int(value)); });
    each(drops, [this](const QString& path, qint64 value) { dropPathAfterBytes(path, value); });
    each(dropsOnce,
         [this](const QString& path, qint64 value) { dropPathOnceAfterBytes(path, value); });
    return unreadable;
}
