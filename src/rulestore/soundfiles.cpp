#include "rulestore/soundfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

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

// Where the bytes of a file are read from: the store file through a descriptor kept open (see
// keptDescriptor()), its log through one of its own.
struct Source
{
    int kept = -1;
    QString path;
};

#ifdef Q_OS_UNIX
// Closing any descriptor of a file drops every lock this process holds on it, SQLite's own among
// them. Another console would then take this one's connection for gone, and delete the
// write-ahead log that this one still writes to: its later changes would reach nobody else. So
// the store file is read through one descriptor per file, opened once and never closed.
int keptDescriptor(const QString &path)
{
    static std::mutex mutex;
    static std::map<std::pair<dev_t, ino_t>, int> kept;
    const QByteArray name = QFile::encodeName(path);
    struct stat st;
    std::lock_guard lock(mutex);
    if (::stat(name.constData(), &st) != 0)
        return -1;
    if (const auto it = kept.find({st.st_dev, st.st_ino}); it != kept.end())
        return it->second;
    const int fd = ::open(name.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    // Named after the file it opened, which is the one read even if the name moved on; a second
    // descriptor of a file already known stays open as well, unused.
    if (::fstat(fd, &st) == 0)
        kept.emplace(std::pair(st.st_dev, st.st_ino), fd);
    return fd;
}
#endif

// The bytes of `source` from `from` on: `most` of them, or all to its end when `most` is -1. A
// missing log that `mayBeMissing` is read as empty.
Part hashPart(const Source &source, qint64 from, qint64 most, bool mayBeMissing)
{
    Part part;
    QFile file(source.path);
    if (source.kept < 0 && !file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        if (mayBeMissing && !file.exists())
            part = {XXH3_128bits(nullptr, 0), 0};
        return part;
    }
    const auto free = [](XXH3_state_t *s) { XXH3_freeState(s); };
    const std::unique_ptr<XXH3_state_t, decltype(free)> state(XXH3_createState(), free);
    if (!state || XXH3_128bits_reset(state.get()) != XXH_OK || (source.kept < 0 && from > 0 && !file.seek(from)))
        return part;
    QByteArray buffer(ReadBlock, Qt::Uninitialized);
    qint64 total = 0;
    while (most < 0 || total < most) {
        const qint64 want = most < 0 ? ReadBlock : std::min(ReadBlock, most - total);
        qint64 n = -1;
#ifdef Q_OS_UNIX
        if (source.kept >= 0) {
            do
                n = ::pread(source.kept, buffer.data(), size_t(want), off_t(from + total));
            while (n < 0 && errno == EINTR);
        }
#endif
        if (source.kept < 0)
            n = file.read(buffer.data(), want);
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
    Source store{-1, path};
    qint64 size = -1;
#ifdef Q_OS_UNIX
    store.kept = keptDescriptor(path);
    if (struct stat st; store.kept >= 0 && ::fstat(store.kept, &st) == 0)
        size = st.st_size;
    if (size < 0)
        return std::nullopt;
#else
    size = QFileInfo(path).size();
#endif
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
                    tail = hashPart(store, half, -1, false);
                } catch (...) {
                    tail.bytes = -1;
                }
            });
        }
        head = hashPart(store, 0, half > 0 ? half : -1, false);
    }
    const Part log = hashPart({-1, path + QStringLiteral("-wal")}, 0, -1, true);
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
