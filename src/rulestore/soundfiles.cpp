#include "rulestore/soundfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

#include <memory>

#ifdef QARVO_HAVE_XXHASH
#define XXH_INLINE_ALL
#include <xxhash.h>
#endif

namespace qarvo::store {

namespace {

// Enough for every store one administrator moves between; older entries are dropped.
constexpr int KeptEntries = 16;
constexpr qsizetype ReadBlock = 256 * 1024;

QString recordPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation)
           + QStringLiteral("/qarvo/sound-stores");
}

QString keyOf(const QString &path)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(QFileInfo(path).absoluteFilePath()));
}

QByteArray entryFor(const ContentHash &hash)
{
    return QByteArray::number(hash.high, 16).rightJustified(16, '0')
           + QByteArray::number(hash.low, 16).rightJustified(16, '0') + ' '
           + QByteArray::number(hash.fileBytes) + ' ' + QByteArray::number(hash.logBytes);
}

// The record's lines, each "HASH FILEBYTES LOGBYTES KEY"; those of other files first as they
// stand, at most KeptEntries - 1 of them.
QList<QByteArray> otherEntries(const QByteArray &key)
{
    QFile file(recordPath());
    QList<QByteArray> lines;
    // A record larger than its entries could ever be is not ours to read.
    if (!file.open(QIODevice::ReadOnly) || file.size() > 64 * 1024)
        return lines;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (!line.isEmpty() && !line.endsWith(' ' + key) && lines.size() < KeptEntries - 1)
            lines.append(line);
    }
    return lines;
}

#ifdef QARVO_HAVE_XXHASH
// Adds the bytes of `path` to `state`; -1 when it cannot be read, 0 when it does not exist.
qint64 addBytes(XXH3_state_t *state, QByteArray &buffer, const QString &path, bool mayBeMissing)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return mayBeMissing && !file.exists() ? 0 : -1;
    qint64 total = 0;
    for (;;) {
        const qint64 n = file.read(buffer.data(), buffer.size());
        if (n < 0)
            return -1;
        if (n == 0)
            return total;
        XXH3_128bits_update(state, buffer.constData(), size_t(n));
        total += n;
    }
}
#endif

} // namespace

std::optional<ContentHash> contentHash(const QString &path)
{
#ifdef QARVO_HAVE_XXHASH
    const auto free = [](XXH3_state_t *s) { XXH3_freeState(s); };
    const std::unique_ptr<XXH3_state_t, decltype(free)> state(XXH3_createState(), free);
    if (!state || XXH3_128bits_reset(state.get()) != XXH_OK)
        return std::nullopt;
    QByteArray buffer(ReadBlock, Qt::Uninitialized);
    ContentHash hash;
    hash.fileBytes = addBytes(state.get(), buffer, path, false);
    hash.logBytes = addBytes(state.get(), buffer, path + QStringLiteral("-wal"), true);
    if (hash.fileBytes < 0 || hash.logBytes < 0)
        return std::nullopt;
    const XXH128_hash_t digest = XXH3_128bits_digest(state.get());
    hash.high = digest.high64;
    hash.low = digest.low64;
    return hash;
#else
    Q_UNUSED(path);
    return std::nullopt;
#endif
}

bool passedBefore(const QString &path, const ContentHash &hash)
{
    QFile file(recordPath());
    if (!file.open(QIODevice::ReadOnly) || file.size() > 64 * 1024)
        return false;
    const QByteArray wanted = entryFor(hash) + ' ' + keyOf(path).toLatin1();
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line == wanted)
            return true;
    }
    return false;
}

void rememberPassed(const QString &path, const ContentHash &hash)
{
    const QByteArray key = keyOf(path).toLatin1();
    QList<QByteArray> lines = otherEntries(key);
    lines.prepend(entryFor(hash) + ' ' + key);
    // Without a record the next open checks the file again; nothing else depends on it.
    QDir().mkpath(QFileInfo(recordPath()).absolutePath());
    QSaveFile file(recordPath());
    if (file.open(QIODevice::WriteOnly) && file.write(lines.join('\n') + '\n') > 0)
        file.commit();
}

} // namespace qarvo::store
