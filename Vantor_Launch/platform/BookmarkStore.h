#pragma once

#include <QByteArray>
#include <QUrl>
#include <optional>

// Remembers a user-chosen application bundle across runs and grants access to it.
class BookmarkStore {
public:
    struct Resolution {
        QUrl url;
        bool isStale = false;
    };

    virtual ~BookmarkStore() = default;
    virtual std::optional<QByteArray> createBookmark(const QUrl& bundle) = 0;
    virtual std::optional<Resolution> resolve(const QByteArray& bookmark) = 0;
    // Access lasts until the process ends.
    virtual void startAccessing(const QUrl& bundle) = 0;
};
