#include "rulestore/storelisting.h"

#include "dataservice/methods.h"
#include "dataservice/textblocks.h"
#include "rulestore/storedb.h"
#include "rulestore/storeerror.h"

#include <QSqlDriver>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

#ifdef QARVO_HAVE_SQLITE3
#include <sqlite3.h>
#endif
#ifdef QARVO_HAVE_LIBPQ
#include <libpq-fe.h>
#endif

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace qarvo::store {

namespace {

struct Listed
{
    int id;
    int wql;
    int nameSize;
    int commentSize;
    const char *name;
    const char *comment;
    bool ascii; // the name is plain ASCII
};

bool isAscii(const char *text, qsizetype size)
{
    return std::none_of(text, text + size, [](char c) { return (c & 0x80) != 0; });
}

// A rule in the sort: the eight lower-cased bytes of its name from the depth being sorted on,
// first byte highest, so that comparing two numbers compares the bytes.
struct SortItem
{
    quint64 key;
    quint32 rule;
};

} // namespace

// The rules as the database answered them, names and comments in UTF-8.
struct Listing
{
    // Under the size from which the C library maps and unmaps memory for each allocation.
    TextBlocks<char, 64 * 1024> texts;
    std::vector<Listed> rules;
    std::vector<SortItem> order;
    // Of a listing read in steps: the steps' rows, emptied, for the next listing to fill.
    std::vector<std::vector<Listed>> chunks;
    bool allAscii = true;

    Listed copied(int id, int wql, const char *name, int nameSize, const char *comment, int commentSize)
    {
        return {id, wql, nameSize, commentSize, copy(name, nameSize), copy(comment, commentSize),
                isAscii(name, nameSize)};
    }
    void add(const Listed &r)
    {
        rules.push_back(r);
        allAscii = allAscii && r.ascii;
    }
    void add(int id, int wql, const char *name, int nameSize, const char *comment, int commentSize)
    {
        add(copied(id, wql, name, nameSize, comment, commentSize));
    }
    const char *copy(const char *text, qsizetype size) { return size ? texts.at(texts.add(text, size)) : ""; }
    void clear()
    {
        texts.clear();
        rules.clear();
        order.clear();
        for (std::vector<Listed> &chunk : chunks)
            chunk.clear();
        allAscii = true;
    }
    size_t capacity() const
    {
        size_t n = texts.bytes() + rules.capacity() * sizeof(Listed) + order.capacity() * sizeof(SortItem);
        for (const std::vector<Listed> &chunk : chunks)
            n += chunk.capacity() * sizeof(Listed);
        return n;
    }
};

std::shared_ptr<ListingSpare> ListingSpare::shared()
{
    static const auto spare = std::make_shared<ListingSpare>();
    return spare;
}

void ListingSpare::giveBack(std::unique_ptr<Listing> listing)
{
    // A store of millions of rules lets its memory go instead.
    constexpr size_t Kept = 64 * 1024 * 1024;
    if (listing->capacity() <= Kept) {
        listing->clear();
        std::lock_guard lock(m_mutex);
        m_listing = std::move(listing);
    }
}

std::unique_ptr<Listing> ListingSpare::take()
{
    std::lock_guard lock(m_mutex);
    return m_listing ? std::move(m_listing) : std::make_unique<Listing>();
}

namespace {

std::string_view nameOf(const Listed &r)
{
    return {r.name, size_t(r.nameSize)};
}

QString nameText(const Listed &r)
{
    return QString::fromUtf8(r.name, r.nameSize);
}

constexpr unsigned char lowerAscii(unsigned char c)
{
    return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
}

// QChar's case folding, except for the two signs that fold into ASCII letters, the long s and the
// Kelvin sign: they keep their own place after every ASCII character, as all other non-ASCII
// characters do. So a name holding any non-ASCII character stands between the same two ASCII
// names in this order as in the database's, which folds ASCII letters only.
char32_t folded(char32_t c)
{
    if (c < 0x80)
        return lowerAscii(static_cast<unsigned char>(c));
    const char32_t f = QChar::toCaseFolded(c);
    return f < 0x80 ? c : f;
}

char32_t nextPoint(QStringView s, qsizetype &i)
{
    const QChar c = s[i++];
    if (c.isHighSurrogate() && i < s.size() && s[i].isLowSurrogate())
        return QChar::surrogateToUcs4(c, s[i++]);
    return c.unicode();
}

int foldedCompare(QStringView a, QStringView b)
{
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < a.size() && j < b.size()) {
        const char32_t ca = folded(nextPoint(a, i));
        const char32_t cb = folded(nextPoint(b, j));
        if (ca != cb)
            return ca < cb ? -1 : 1;
    }
    return int(i < a.size()) - int(j < b.size());
}

// The full order of two all-ASCII names, where lower-casing each byte orders them as QString's
// case-insensitive comparison does.
bool asciiLess(const Listed &a, const Listed &b)
{
    const std::string_view na = nameOf(a), nb = nameOf(b);
    const size_t common = std::min(na.size(), nb.size());
    for (size_t i = 0; i < common; ++i) {
        const auto ca = lowerAscii(static_cast<unsigned char>(na[i]));
        const auto cb = lowerAscii(static_cast<unsigned char>(nb[i]));
        if (ca != cb)
            return ca < cb;
    }
    if (na.size() != nb.size())
        return na.size() < nb.size();
    if (const int c = na.compare(nb))
        return c < 0;
    return a.id < b.id;
}

quint64 keyAt(const Listed &r, qsizetype depth)
{
    quint64 key = 0;
    for (qsizetype i = depth; i < depth + 8; ++i)
        key = (key << 8) | (i < r.nameSize ? lowerAscii(static_cast<unsigned char>(r.name[i])) : 0);
    return key;
}

// Orders items by key alone, a byte at a time from the lowest, in two passes over the items per
// byte; a byte that is the same in every key is skipped.
void radixSortByKey(SortItem *items, size_t n, std::vector<SortItem> &scratch)
{
    size_t counts[8][256] = {};
    for (size_t i = 0; i < n; ++i) {
        for (int b = 0; b < 8; ++b)
            ++counts[b][(items[i].key >> (8 * b)) & 0xff];
    }
    scratch.resize(std::max(scratch.size(), n));
    SortItem *from = items;
    SortItem *to = scratch.data();
    for (int b = 0; b < 8; ++b) {
        size_t *count = counts[b];
        if (count[(from[0].key >> (8 * b)) & 0xff] == n)
            continue;
        size_t at = 0;
        for (int v = 0; v < 256; ++v)
            at += std::exchange(count[v], at);
        for (size_t i = 0; i < n; ++i)
            to[count[(from[i].key >> (8 * b)) & 0xff]++] = from[i];
        std::swap(from, to);
    }
    if (from != items)
        std::copy(from, from + n, items);
}

// Sorts all-ASCII names eight bytes at a time, each step a radix sort of the numbers made of
// those bytes: names that share a long beginning ("Health rule 1", "Health rule 2", ...) have it
// looked at once rather than at every comparison. The work list stands in for recursion, so a
// long shared beginning never deepens the stack.
void sortAsciiNames(const std::vector<Listed> &rules, std::vector<SortItem> &items)
{
    struct Range
    {
        size_t lo, hi;
        qsizetype depth;
    };
    // Within a range every key is taken at the same depth, and all bytes before it are equal.
    const auto less = [&](const SortItem &a, const SortItem &b) {
        return a.key != b.key ? a.key < b.key : asciiLess(rules[a.rule], rules[b.rule]);
    };
    std::vector<SortItem> scratch;
    std::vector<Range> todo{{0, items.size(), 0}};
    while (!todo.empty()) {
        const Range r = todo.back();
        todo.pop_back();
        SortItem *const first = items.data() + r.lo;
        SortItem *const last = items.data() + r.hi;
        if (r.hi - r.lo < 64) {
            std::sort(first, last, less);
            continue;
        }
        radixSortByKey(first, r.hi - r.lo, scratch);
        for (SortItem *run = first; run != last;) {
            SortItem *end = run + 1;
            while (end != last && end->key == run->key)
                ++end;
            if (end - run > 1) {
                // Of the names equal so far, those that end here come first, being the shorter.
                SortItem *const longer = std::partition(
                    run, end, [&](const SortItem &s) { return rules[s.rule].nameSize <= r.depth + 8; });
                std::sort(run, longer, less);
                for (SortItem *it = longer; it != end; ++it)
                    it->key = keyAt(rules[it->rule], r.depth + 8);
                if (end - longer > 1)
                    todo.push_back({size_t(longer - items.data()), size_t(end - items.data()), r.depth + 8});
            }
            run = end;
        }
    }
}

// Names beyond ASCII: each turned into a QString once, not at every comparison.
void sortByNameText(const std::vector<Listed> &rules, std::vector<SortItem> &items)
{
    std::vector<QString> names;
    names.reserve(rules.size());
    for (const Listed &r : rules)
        names.push_back(nameText(r));
    std::sort(items.begin(), items.end(), [&](const SortItem &a, const SortItem &b) {
        return nameLess(names[a.rule], rules[a.rule].id, names[b.rule], rules[b.rule].id);
    });
}

void sortNames(Listing &l)
{
    l.order.resize(l.rules.size());
    for (size_t i = 0; i < l.rules.size(); ++i)
        l.order[i] = {l.allAscii ? keyAt(l.rules[i], 0) : 0, quint32(i)};
    if (l.allAscii)
        sortAsciiNames(l.rules, l.order);
    else
        sortByNameText(l.rules, l.order);
}

QVariant fieldOf(const Listed &r, const QString &name, bool withWql)
{
    if (name == QLatin1String("rule_name"))
        return nameText(r);
    if (name == QLatin1String("rule_comment"))
        return QString::fromUtf8(r.comment, r.commentSize);
    if (name == QLatin1String("rule_id"))
        return ruleIdText(r.id);
    if (withWql && name == QLatin1String("rule_wql"))
        return r.wql;
    throw DataServiceError(status::Fail, QStringLiteral("no field named ") + name);
}

// fieldOf() without a QString: the texts as the database answered them, the id in nine digits
// kept in `digits` (an id that does not fit them is left to fieldOf()).
bool utf8FieldOf(const Listed &r, const QString &name, std::array<char, 9> &digits, QByteArrayView *text)
{
    if (name == QLatin1String("rule_name")) {
        *text = QByteArrayView(r.name, r.nameSize);
    } else if (name == QLatin1String("rule_comment")) {
        *text = QByteArrayView(r.comment, r.commentSize);
    } else if (name == QLatin1String("rule_id") && r.id >= 0 && r.id <= 999999999) {
        int id = r.id;
        for (auto d = digits.rbegin(); d != digits.rend(); ++d, id /= 10)
            *d = char('0' + id % 10);
        *text = QByteArrayView(digits.data(), qsizetype(digits.size()));
    } else {
        return false;
    }
    return true;
}

void giveBack(std::unique_ptr<Listing> &listing, const std::weak_ptr<ListingSpare> &spare)
{
    if (!listing)
        return;
    if (const auto s = spare.lock())
        s->giveBack(std::move(listing));
    listing.reset();
}

// What both row sets of a list answer from the row they stand on, which `Rows` tells by current().
template<class Rows>
class ListedFields : public RowSet, public Utf8Fields
{
public:
    explicit ListedFields(bool withWql) : m_withWql(withWql) {}

    void moveNext() override
    {
        rows().current();
        ++m_pos;
    }
    QVariant field(const QString &name) override { return fieldOf(rows().current(), name, m_withWql); }
    bool fieldUtf8(const QString &name, QByteArrayView *text) override
    {
        return utf8FieldOf(rows().current(), name, m_digits, text);
    }

protected:
    size_t m_pos = 0; // the current row's place, as `Rows` counts

private:
    Rows &rows() { return static_cast<Rows &>(*this); }

    bool m_withWql;
    std::array<char, 9> m_digits{};
};

// The answer as the control reads it, a row at a time. Once read, its memory goes back to the
// store for the next listing.
class ListedRowSet final : public ListedFields<ListedRowSet>
{
    friend class ListedFields<ListedRowSet>;

public:
    ListedRowSet(std::unique_ptr<Listing> listing, bool withWql, std::weak_ptr<ListingSpare> spare)
        : ListedFields(withWql), m_l(std::move(listing)), m_spare(std::move(spare))
    {
        sortNames(*m_l);
    }
    ~ListedRowSet() override { close(); }

    bool atEnd() override
    {
        if (!m_l)
            throw DataServiceError(status::Fail, QStringLiteral("row set is closed"));
        return m_pos >= m_l->order.size();
    }

    void close() override { giveBack(m_l, m_spare); }

private:
    const Listed &current() const
    {
        if (!m_l || m_pos >= m_l->order.size())
            throw DataServiceError(status::Fail, QStringLiteral("no current row"));
        return m_l->rules[m_l->order[m_pos].rule];
    }

    std::unique_ptr<Listing> m_l; // null once closed
    std::weak_ptr<ListingSpare> m_spare;
};

[[noreturn]] void listingFailed(StoreDb &db, const QString &message)
{
    db.abort();
    refuse(status::Fail, message);
}

// The connection under Qt's driver, when it is of the kind named; Qt names the PostgreSQL one
// after its struct.
template<class Handle>
Handle *driverHandle(StoreDb &db, std::initializer_list<const char *> typeNames)
{
    const QSqlDatabase d = db.db();
    const QVariant h = d.driver() ? d.driver()->handle() : QVariant();
    if (!h.isValid()
        || std::none_of(typeNames.begin(), typeNames.end(), [&](const char *n) { return qstrcmp(h.typeName(), n) == 0; }))
        return nullptr;
    return *static_cast<Handle *const *>(h.constData());
}

#ifdef QARVO_HAVE_SQLITE3
// The row `st` stands on, its texts copied into `l`.
Listed copiedRow(Listing &l, sqlite3_stmt *st)
{
    // The text first, then its size: the order in which SQLite keeps the pointer valid.
    const auto *name = reinterpret_cast<const char *>(sqlite3_column_text(st, 1));
    const int nameSize = sqlite3_column_bytes(st, 1);
    const auto *comment = reinterpret_cast<const char *>(sqlite3_column_text(st, 2));
    const int commentSize = sqlite3_column_bytes(st, 2);
    return l.copied(sqlite3_column_int(st, 0), sqlite3_column_int(st, 3), name ? name : "", nameSize,
                    comment ? comment : "", commentSize);
}

// A store whose names are all beyond ASCII is one group.
void sortGroup(std::vector<Listed> &group)
{
    if (group.size() < 2)
        return;
    if (std::all_of(group.begin(), group.end(), [](const Listed &r) { return r.ascii; })) {
        std::sort(group.begin(), group.end(), asciiLess);
        return;
    }
    std::vector<SortItem> order(group.size());
    for (size_t i = 0; i < group.size(); ++i)
        order[i] = {0, quint32(i)};
    sortByNameText(group, order);
    std::vector<Listed> sorted;
    sorted.reserve(group.size());
    for (const SortItem &item : order)
        sorted.push_back(group[item.rule]);
    group = std::move(sorted);
}

// SQLite's NOCASE comparison says these are equal: ASCII letters folded, bytes compared up to
// the first NUL, and the same length.
bool nocaseEqual(const Listed &a, const Listed &b)
{
    if (a.nameSize != b.nameSize)
        return false;
    for (int i = 0; i < a.nameSize; ++i) {
        const auto ca = static_cast<unsigned char>(a.name[i]);
        if (lowerAscii(ca) != lowerAscii(static_cast<unsigned char>(b.name[i])))
            return false;
        if (ca == 0)
            return true;
    }
    return true;
}

// A listing read from the database on a thread of its own, on a connection of its own, while
// the control reads the rows already there: the index keeps the rules in NOCASE order, which
// is this store's order for ASCII names. Where the two orders part, the rows concerned stand next
// to each other in the database's order (names the same but for ASCII case, and names holding
// other characters, which sit between the same two ASCII names in both orders), so each such
// group is sorted before it is handed on.
class StreamedRowSet final : public ListedFields<StreamedRowSet>
{
    friend class ListedFields<StreamedRowSet>;

public:
    StreamedRowSet(std::unique_ptr<Listing> listing, bool withWql, std::weak_ptr<ListingSpare> spare)
        : ListedFields(withWql), m_l(std::move(listing)), m_spare(std::move(spare))
    {
    }
    ~StreamedRowSet() override { close(); }

    // False when the database could not be read this way; the rows are then read at once.
    bool start(const QByteArray &path, const QByteArray &identity, qint16 category)
    {
        return launch(path, identity, category) && settle(path, identity);
    }

    // The reading begun; settle() tells whether it took.
    bool launch(const QByteArray &path, const QByteArray &identity, qint16 category)
    {
        // Before the file is opened, and again once it is: whatever is put in the store's place
        // later makes no difference to an open connection.
        if (fileIdentity(path) != identity)
            return false;
        try {
            m_thread = std::thread([this, path, category] { produce(path, category); });
        } catch (const std::system_error &) {
            return false;
        }
        return true;
    }

    bool settle(const QByteArray &path, const QByteArray &identity)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_started; });
        if ((m_firstStep == SQLITE_ROW || m_firstStep == SQLITE_DONE) && fileIdentity(path) == identity)
            return true;
        m_stop = true;
        lock.unlock();
        m_thread.join();
        return false;
    }

    bool atEnd() override
    {
        if (!m_l)
            throw DataServiceError(status::Fail, QStringLiteral("row set is closed"));
        return !haveRow();
    }

    void close() override
    {
        if (m_thread.joinable()) {
            m_stop = true;
            m_thread.join();
        }
        if (m_l) {
            for (std::vector<Listed> &chunk : m_chunks)
                m_l->chunks.push_back(std::move(chunk));
            m_chunks.clear();
        }
        giveBack(m_l, m_spare);
    }

private:
    bool haveRow()
    {
        if (m_pos < m_count)
            return true;
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_taken < m_chunks.size() || m_done; });
        if (m_taken < m_chunks.size()) {
            // The producer never touches a chunk once it is here, nor moves its rows.
            const std::vector<Listed> &chunk = m_chunks[m_taken++];
            m_rows = chunk.data();
            m_count = chunk.size();
            m_pos = 0;
            return true;
        }
        if (!m_error.isEmpty())
            throw DataServiceError(status::Fail, m_error);
        return false;
    }

    const Listed &current()
    {
        if (!m_l || !haveRow())
            throw DataServiceError(status::Fail, QStringLiteral("no current row"));
        return m_rows[m_pos];
    }

    void produce(const QByteArray &path, qint16 category)
    {
        sqlite3 *h = nullptr;
        sqlite3_stmt *st = nullptr;
        int rc = sqlite3_open_v2(path.constData(), &h, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
        if (rc == SQLITE_OK) {
            sqlite3_busy_timeout(h, 10000);
            // The rows are read once, in the order of the index's pages: a few pages of cache
            // serve as well as the default two megabytes, and touch far less fresh memory.
            sqlite3_exec(h, "PRAGMA cache_size = 64", nullptr, nullptr, nullptr);
            rc = sqlite3_prepare_v2(h, ListQuerySqlite, -1, &st, nullptr);
        }
        if (rc == SQLITE_OK) {
            sqlite3_bind_int(st, 1, category);
            rc = sqlite3_step(st);
        }
        {
            // From the first step on, the rows are those of the store as it was during the call.
            std::lock_guard lock(m_mutex);
            m_started = true;
            m_firstStep = rc;
        }
        m_changed.notify_all();
        QString error;
        if (rc == SQLITE_ROW || rc == SQLITE_DONE) {
            try {
                rc = readAll(st, rc);
                if (rc != SQLITE_DONE && !m_stop)
                    error = QString::fromUtf8(sqlite3_errmsg(h));
            } catch (const std::bad_alloc &) {
                error = QStringLiteral("out of memory");
            }
        }
        sqlite3_finalize(st);
        sqlite3_close(h);
        {
            std::lock_guard lock(m_mutex);
            m_done = true;
            m_error = error;
        }
        m_changed.notify_all();
    }

    int readAll(sqlite3_stmt *st, int rc)
    {
        std::vector<Listed> group;
        std::vector<Listed> chunk = freshChunk();
        size_t chunkRows = FirstChunk;
        Listed head{}; // the group's first ASCII row
        bool haveHead = false;
        const auto flush = [&] {
            sortGroup(group);
            chunk.insert(chunk.end(), group.begin(), group.end());
            group.clear();
        };
        for (; rc == SQLITE_ROW && !m_stop; rc = sqlite3_step(st)) {
            const Listed r = copiedRow(*m_l, st);
            if (r.ascii && !(haveHead && nocaseEqual(head, r))) {
                flush();
                if (chunk.size() >= chunkRows) {
                    publish(chunk);
                    chunk = freshChunk();
                    chunkRows = std::min(chunkRows * 2, LargestChunk);
                }
                head = r;
                haveHead = true;
            }
            group.push_back(r);
        }
        flush();
        publish(chunk);
        return rc;
    }

    // Memory an earlier listing filled where there is some: pages touched for the first time cost
    // more than the copying into them.
    std::vector<Listed> freshChunk()
    {
        std::vector<Listed> chunk;
        if (!m_l->chunks.empty()) {
            chunk = std::move(m_l->chunks.back());
            m_l->chunks.pop_back();
        }
        chunk.reserve(LargestChunk);
        return chunk;
    }

    void publish(std::vector<Listed> &chunk)
    {
        if (chunk.empty())
            return;
        {
            std::lock_guard lock(m_mutex);
            m_chunks.push_back(std::move(chunk));
        }
        m_changed.notify_all();
    }

    // The first rows reach the control soon; later ones in larger steps.
    static constexpr size_t FirstChunk = 128;
    static constexpr size_t LargestChunk = 8192;

    std::unique_ptr<Listing> m_l; // its texts are written by the producer alone; null once closed
    std::weak_ptr<ListingSpare> m_spare;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_started = false;
    int m_firstStep = SQLITE_OK;
    std::vector<std::vector<Listed>> m_chunks;
    bool m_done = false;
    QString m_error;

    // The reader's place, in the chunk it took last.
    size_t m_taken = 0;
    const Listed *m_rows = nullptr;
    size_t m_count = 0;
};

// The file a second connection may read the store's list from; empty where it may not.
QByteArray streamableFile(StoreDb &db)
{
    sqlite3 *h = db.sqlite ? driverHandle<sqlite3>(db, {"sqlite3*"}) : nullptr;
    const char *file = h ? sqlite3_db_filename(h, "main") : nullptr;
    if (!file || db.checkedFile.isEmpty())
        return {};
    return QByteArray(file);
}

std::unique_ptr<RowSet> streamWithSqlite(StoreDb &db, qint16 category, const std::shared_ptr<ListingSpare> &spare)
{
    const QByteArray file = streamableFile(db);
    if (file.isEmpty())
        return nullptr;
    auto rows = std::make_unique<StreamedRowSet>(spare->take(), category == category::WMI, spare);
    if (!rows->start(file, db.checkedFile, category))
        return nullptr;
    return rows;
}

// What changes with every commit to the database: the pragma with those of other connections,
// the pager's own count with this connection's as well (schema changes included). Nothing when
// the database cannot be asked.
std::optional<std::pair<qint64, int>> changeMark(StoreDb &db)
{
    sqlite3 *h = driverHandle<sqlite3>(db, {"sqlite3*"});
    sqlite3_stmt *st = nullptr;
    if (!h || sqlite3_prepare_v2(h, "PRAGMA data_version", -1, &st, nullptr) != SQLITE_OK)
        return std::nullopt;
    std::optional<std::pair<qint64, int>> mark;
    unsigned int pagerVersion = 0;
    if (sqlite3_step(st) == SQLITE_ROW
        && sqlite3_file_control(h, "main", SQLITE_FCNTL_DATA_VERSION, &pagerVersion) == SQLITE_OK)
        mark.emplace(sqlite3_column_int64(st, 0), int(pagerVersion));
    sqlite3_finalize(st);
    return mark;
}

bool listWithSqlite(StoreDb &db, qint16 category, Listing &out)
{
    sqlite3 *h = driverHandle<sqlite3>(db, {"sqlite3*"});
    if (!h)
        return false;
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(h, ListQuery, -1, &st, nullptr) != SQLITE_OK)
        listingFailed(db, QString::fromUtf8(sqlite3_errmsg(h)));
    sqlite3_bind_int(st, 1, category);
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW)
        out.add(copiedRow(out, st));
    if (rc != SQLITE_DONE) {
        const QString message = QString::fromUtf8(sqlite3_errmsg(h));
        sqlite3_finalize(st);
        listingFailed(db, message);
    }
    sqlite3_finalize(st);
    return true;
}
#endif

#ifdef QARVO_HAVE_LIBPQ
// A column of integers in libpq's text form: an optional sign and decimal digits.
int pgInt(const char *text)
{
    const bool negative = *text == '-';
    qint64 v = 0;
    for (const char *c = text + (negative ? 1 : 0); *c >= '0' && *c <= '9' && v <= INT_MAX; ++c)
        v = v * 10 + (*c - '0');
    return int(negative ? -v : v);
}

bool listWithLibpq(StoreDb &db, qint16 category, Listing &out)
{
    PGconn *conn = driverHandle<PGconn>(db, {"PGconn*", "pg_conn*"});
    // Only between statements: a query of Qt's own still being read holds the connection.
    if (!conn || PQtransactionStatus(conn) == PQTRANS_ACTIVE)
        return false;
    const QByteArray value = QByteArray::number(category);
    const char *values[] = {value.constData()};
    PGresult *result =
        PQexecParams(conn, ListQueryLibpq, 1, nullptr, values, nullptr, nullptr, 0);
    if (PQresultStatus(result) != PGRES_TUPLES_OK) {
        const QString message = QString::fromUtf8(PQresultErrorMessage(result)).trimmed();
        PQclear(result);
        listingFailed(db, message);
    }
    const int rows = PQntuples(result);
    for (int row = 0; row < rows; ++row) {
        out.add(pgInt(PQgetvalue(result, row, 0)), pgInt(PQgetvalue(result, row, 3)), PQgetvalue(result, row, 1),
                PQgetlength(result, row, 1), PQgetvalue(result, row, 2), PQgetlength(result, row, 2));
    }
    PQclear(result);
    return true;
}
#endif

// Any other driver, or a build without the client libraries.
void listWithQt(StoreDb &db, qint16 category, Listing &out)
{
    QSqlQuery q = db.exec(ListQuery, {int(category)});
    while (q.next()) {
        const QByteArray name = q.value(1).toString().toUtf8();
        const QByteArray comment = q.value(2).toString().toUtf8();
        out.add(q.value(0).toInt(), q.value(3).toInt(), name.constData(), int(name.size()), comment.constData(),
                int(comment.size()));
    }
    q.finish();
}

} // namespace

struct AheadListing
{
    qint16 category = 0;
#ifdef QARVO_HAVE_SQLITE3
    std::pair<qint64, int> mark;
    QByteArray file;
    std::unique_ptr<StreamedRowSet> rows;
#endif
};

namespace {

#ifdef QARVO_HAVE_SQLITE3
// The list begun ahead, when it answers for the store as it is now; it is ended otherwise.
std::unique_ptr<RowSet> takeAhead(StoreDb &db, qint16 category)
{
    const std::shared_ptr<AheadListing> ahead = std::exchange(db.ahead, nullptr);
    // No commit since the mark, so none after the reading's snapshot either.
    if (ahead && ahead->category == category && changeMark(db) == ahead->mark
        && ahead->rows->settle(ahead->file, db.checkedFile))
        return std::move(ahead->rows);
    return nullptr;
}
#endif

} // namespace

void listAhead(StoreDb &db, qint16 category)
{
    db.ahead.reset();
#ifdef QARVO_HAVE_SQLITE3
    const QByteArray file = streamableFile(db);
    // Marked before the reading begins, so that any commit the reading might not see changes it.
    const auto mark = file.isEmpty() ? std::nullopt : changeMark(db);
    if (!mark)
        return;
    const std::shared_ptr<ListingSpare> spare = ListingSpare::shared();
    auto ahead = std::make_shared<AheadListing>();
    ahead->category = category;
    ahead->mark = *mark;
    ahead->file = file;
    ahead->rows = std::make_unique<StreamedRowSet>(spare->take(), category == category::WMI, spare);
    if (ahead->rows->launch(file, db.checkedFile, category))
        db.ahead = std::move(ahead);
#else
    Q_UNUSED(category);
#endif
}

QByteArray fileIdentity(const QByteArray &path)
{
#ifdef Q_OS_UNIX
    struct stat st;
    if (!path.isEmpty() && ::stat(path.constData(), &st) == 0)
        return QByteArray::number(quint64(st.st_dev)) + ':' + QByteArray::number(quint64(st.st_ino));
#else
    Q_UNUSED(path);
#endif
    return {};
}

bool nameLess(const QString &a, int idA, const QString &b, int idB)
{
    if (const int c = foldedCompare(a, b))
        return c < 0;
    if (const int c = a.compare(b))
        return c < 0;
    return idA < idB;
}

ListingSpare::ListingSpare() = default;
ListingSpare::~ListingSpare() = default;

std::unique_ptr<RowSet> listRules(StoreDb &db, qint16 category)
{
    const std::shared_ptr<ListingSpare> spare = ListingSpare::shared();
#ifdef QARVO_HAVE_SQLITE3
    if (db.sqlite) {
        if (auto rows = takeAhead(db, category))
            return rows;
        if (auto rows = streamWithSqlite(db, category, spare))
            return rows;
    }
#endif
    std::unique_ptr<Listing> listing = spare->take();
    bool done = false;
#ifdef QARVO_HAVE_SQLITE3
    done = db.sqlite && listWithSqlite(db, category, *listing);
#endif
#ifdef QARVO_HAVE_LIBPQ
    done = done || (!db.sqlite && listWithLibpq(db, category, *listing));
#endif
    if (!done)
        listWithQt(db, category, *listing);
    return std::make_unique<ListedRowSet>(std::move(listing), category == category::WMI, spare);
}

} // namespace qarvo::store
