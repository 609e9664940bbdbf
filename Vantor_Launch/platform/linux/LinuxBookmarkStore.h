#pragma once

#include "platform/BookmarkStore.h"

// On Linux a bookmark is the bundle's absolute path: there is no sandbox to grant access, and a
// bundle that has moved or vanished no longer resolves.
class LinuxBookmarkStore : public BookmarkStore {
public:
    std::optional<QByteArray> createBookmark(const QUrl& bundle) override;
    std::optional<Resolution> resolve(const QByteArray& bookmark) override;
    void startAccessing(const QUrl& bundle) override;
};
