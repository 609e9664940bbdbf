#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// The launcher's rules for writing what matters to disk, and for asking first whether it fits.
// Every function blocks on the disk: call it from a worker.
namespace FileSafety {

// The system's own words for an errno value ("No space left on device").
QString errorText(int error);

// Writes bytes to a new file beside path, flushes it to disk, checks its size and reads it back,
// then renames it over path and flushes the folder. On any failure path is exactly as it was, the
// new file is gone, and a file LaunchError names what failed in the system's words.
void writeAtomically(const QString& path, const QByteArray& bytes);

// Makes a folder's renames and new names durable; best effort.
void flushFolder(const QString& folder);

// Bytes free to this user on the file system that holds path (or its nearest existing parent);
// -1 when it cannot be told.
qint64 freeBytes(const QString& path);

// Throws a file LaunchError naming how much is needed and where, when the file system of folder
// has less than neededBytes plus marginBytes free. Says nothing when free space cannot be told.
void requireFreeSpace(const QString& folder, qint64 neededBytes, qint64 marginBytes);

// "There is not enough free space in <folder>: <needed> are needed and <free> are free."
QString notEnoughSpaceText(const QString& folder, qint64 neededBytes, qint64 freeBytes);

} // namespace FileSafety
