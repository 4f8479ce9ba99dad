#pragma once

// Which SQLite store files passed the page-by-page damage check with exactly the bytes they hold
// now. The check walks every page, which on a large store costs more than everything else the
// console does to show it; a file whose bytes are those of a file that passed is sound as well,
// and hashing the bytes takes a fraction of the walk. Any change to a byte, of the file or of its
// write-ahead log, sends the file through the whole check again.

#include <QString>

#include <optional>

namespace qarvo::store {

struct ContentHash
{
    quint64 high = 0;
    quint64 low = 0;
    qint64 fileBytes = 0;
    qint64 logBytes = 0; // of PATH-wal; 0 when there is none
    bool operator==(const ContentHash &) const = default;
};

// The hash of the bytes of `path` and of its write-ahead log; nothing when either cannot be read.
std::optional<ContentHash> contentHash(const QString &path);

// The record kept in the user's cache folder, one entry for each of the files opened last.
bool passedBefore(const QString &path, const ContentHash &hash);
void rememberPassed(const QString &path, const ContentHash &hash);

} // namespace qarvo::store
