#include "platform/FileExchange.h"

#include <QFile>
#include <cerrno>
#include <fcntl.h>
#include <stdio.h>

int FileExchange::exchange(const QString& first, const QString& second) {
    const QByteArray from = QFile::encodeName(first);
    const QByteArray to = QFile::encodeName(second);
    return ::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_EXCHANGE) == 0
               ? 0
               : errno;
}
