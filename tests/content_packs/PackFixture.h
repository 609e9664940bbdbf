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
    QStringList stagingFolders() const {
        return QDir(filePath(QStringLiteral("tmp")))
            .entryList({QStringLiteral("vantor-launch-pack-*")}, QDir::Dirs);
    }
};
