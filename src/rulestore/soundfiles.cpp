#include "rulestore/soundfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

#include <algorithm>
#include <memory>
#include <thread>

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

// The record's lines, each "HASH FILEBYTES LOGBYTES KEY", the latest first.
QList<QByteArray> recordLines()
{
    QFile file(recordPath());
    // A record larger than its entries could ever be is not ours to read.
    if (!file.open(QIODevice::ReadOnly) || file.size() > 64 * 1024)
        return {};
    QList<QByteArray> lines = file.readAll().split('\n');
    lines.removeAll(QByteArray());
    return lines;
}

#ifdef QARVO_HAVE_XXHASH
// Reading the file is most of what opening an unchanged store costs: from this size on, its two
// halves are read at once, each on a core of its own.
constexpr qint64 TwoHalvesFrom = 4 * 1024 * 1024;

struct Part
{
    XXH128_hash_t digest{};
    qint64 bytes = -1; // -1 when it could not be read
};

// The bytes of `path` from `from` on: `most` of them, or all to its end when `most` is -1. A
// missing file that `mayBeMissing` is read as empty.
Part hashPart(const QString &path, qint64 from, qint64 most, bool mayBeMissing)
{
    Part part;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        if (mayBeMissing && !file.exists())
            part = {XXH3_128bits(nullptr, 0), 0};
        return part;
    }
    const auto free = [](XXH3_state_t *s) { XXH3_freeState(s); };
    const std::unique_ptr<XXH3_state_t, decltype(free)> state(XXH3_createState(), free);
    if (!state || XXH3_128bits_reset(state.get()) != XXH_OK || (from > 0 && !file.seek(from)))
        return part;
    QByteArray buffer(ReadBlock, Qt::Uninitialized);
    qint64 total = 0;
    while (most < 0 || total < most) {
        const qint64 n = file.read(buffer.data(), most < 0 ? ReadBlock : std::min(ReadBlock, most - total));
        if (n < 0)
            return part;
        if (n == 0)
            break;
        XXH3_128bits_update(state.get(), buffer.constData(), size_t(n));
        total += n;
    }
    return {XXH3_128bits_digest(state.get()), total};
}
#endif

} // namespace

std::optional<ContentHash> contentHash(const QString &path)
{
#ifdef QARVO_HAVE_XXHASH
    const qint64 size = QFileInfo(path).size();
    const qint64 half = size >= TwoHalvesFrom ? (size / 2) / ReadBlock * ReadBlock : 0;
    Part head;
    Part tail{XXH3_128bits(nullptr, 0), 0};
    {
        // Joined on the way out, also when the first half cannot be read.
        struct Joined
        {
            std::thread thread;
            ~Joined()
            {
                if (thread.joinable())
                    thread.join();
            }
        } second;
        if (half > 0) {
            second.thread = std::thread([&] {
                try {
                    tail = hashPart(path, half, -1, false);
                } catch (...) {
                    tail.bytes = -1;
                }
            });
        }
        head = hashPart(path, 0, half > 0 ? half : -1, false);
    }
    const Part log = hashPart(path + QStringLiteral("-wal"), 0, -1, true);
    // A file that shrank while it was read has no content to speak of.
    if (head.bytes < 0 || tail.bytes < 0 || log.bytes < 0 || (half > 0 && head.bytes != half))
        return std::nullopt;
    const XXH128_hash_t parts[] = {head.digest, tail.digest, log.digest};
    const XXH128_hash_t digest = XXH3_128bits(parts, sizeof parts);
    return ContentHash{digest.high64, digest.low64, head.bytes + tail.bytes, log.bytes};
#else
    Q_UNUSED(path);
    return std::nullopt;
#endif
}

bool passedBefore(const QString &path, const ContentHash &hash)
{
    return recordLines().contains(entryFor(hash) + ' ' + keyOf(path).toLatin1());
}

void rememberPassed(const QString &path, const ContentHash &hash)
{
    const QByteArray key = keyOf(path).toLatin1();
    QList<QByteArray> lines{entryFor(hash) + ' ' + key};
    for (const QByteArray &line : recordLines()) {
        if (!line.endsWith(' ' + key) && lines.size() < KeptEntries)
            lines.append(line);
    }
    // Without a record the next open checks the file again; nothing else depends on it.
    QDir().mkpath(QFileInfo(recordPath()).absolutePath());
    QSaveFile file(recordPath());
    if (file.open(QIODevice::WriteOnly) && file.write(lines.join('\n') + '\n') > 0)
        file.commit();
}

} // namespace qarvo::store
