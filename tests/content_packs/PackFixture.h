#pragma once

#include "ThrowawayHome.h"

#include <QDir>

// A throwaway home and the places of the content store in it.
class PackFixture : public ThrowawayHome {
public:
    QString fallbackStore() const {
        return filePath(QStringLiteral(".local/share/Vantor Director/Creator Backgrounds"));
    }
    QString containerStore() const {
        return filePath(QStringLiteral(
            "Library/Containers/nz.co.halvex.VantorDirector/Data/Library/Application Support/"
            "Vantor Director/Creator Backgrounds"));
    }
    // The installer's work items (staging folders, their locks, manifest drafts).
    QStringList stagingFolders() const {
        return QDir(fallbackStore())
            .entryList({QStringLiteral(".vantor-launch-*")},
                       QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }
};
