#pragma once

#include <QString>

namespace FileExchange {

// Trades the places of two entries of one file system in a single step, so that a reader sees
// either the old or the new at each path, never nothing. Returns 0, or the errno of the failure
// (EINVAL or ENOTSUP where the file system cannot exchange). Blocks: call it from a worker.
int exchange(const QString& first, const QString& second);

} // namespace FileExchange
