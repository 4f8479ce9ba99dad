#include "rulestore/storelisting.h"

#include "dataservice/methods.h"
#include "dataservice/textblocks.h"
#include "rulestore/storedb.h"
#include "rulestore/storeerror.h"

#include <QSqlDriver>

#ifdef QARVO_HAVE_SQLITE3
#include <sqlite3.h>
#endif
#ifdef QARVO_HAVE_LIBPQ
#include <libpq-fe.h>
#endif

#include <algorithm>
#include <climits>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace qarvo::store {

namespace {

struct Listed
{
    int id;
    int wql;
    const char *name;
    qsizetype nameSize;
    const char *comment;
    qsizetype commentSize;
};

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
    bool allAscii = true;

    void add(int id, int wql, const char *name, qsizetype nameSize, const char *comment, qsizetype commentSize)
    {
        rules.push_back({id, wql, copy(name, nameSize), nameSize, copy(comment, commentSize), commentSize});
        if (allAscii)
            allAscii = std::none_of(name, name + nameSize, [](char c) { return (c & 0x80) != 0; });
    }
    const char *copy(const char *text, qsizetype size) { return size ? texts.at(texts.add(text, size)) : ""; }
    void clear()
    {
        texts.clear();
        rules.clear();
        order.clear();
        allAscii = true;
    }
    size_t capacity() const
    {
        return texts.bytes() + rules.capacity() * sizeof(Listed) + order.capacity() * sizeof(SortItem);
    }
};

// Kept in the store rather than the row set's own: a host may hold a row set beyond the store.
void ListingSpare::giveBack(std::unique_ptr<Listing> listing)
{
    // A store of millions of rules lets its memory go instead.
    constexpr size_t Kept = 64 * 1024 * 1024;
    if (listing->capacity() <= Kept) {
        listing->clear();
        m_listing = std::move(listing);
    }
}

std::unique_ptr<Listing> ListingSpare::take()
{
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

void sortNames(Listing &l)
{
    l.order.resize(l.rules.size());
    for (size_t i = 0; i < l.rules.size(); ++i)
        l.order[i] = {l.allAscii ? keyAt(l.rules[i], 0) : 0, quint32(i)};
    if (l.allAscii) {
        sortAsciiNames(l.rules, l.order);
        return;
    }
    std::vector<QString> names;
    names.reserve(l.rules.size());
    for (const Listed &r : l.rules)
        names.push_back(nameText(r));
    std::sort(l.order.begin(), l.order.end(), [&](const SortItem &a, const SortItem &b) {
        return nameLess(names[a.rule], l.rules[a.rule].id, names[b.rule], l.rules[b.rule].id);
    });
}

// The answer as the control reads it, a row at a time. Once read, its memory goes back to the
// store for the next listing.
class ListedRowSet final : public RowSet
{
public:
    ListedRowSet(std::unique_ptr<Listing> listing, bool withWql, std::weak_ptr<ListingSpare> spare)
        : m_l(std::move(listing)), m_spare(std::move(spare)), m_withWql(withWql)
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

    void moveNext() override
    {
        current();
        ++m_pos;
    }

    QVariant field(const QString &name) override
    {
        const Listed &r = current();
        if (name == QLatin1String("rule_name"))
            return nameText(r);
        if (name == QLatin1String("rule_comment"))
            return QString::fromUtf8(r.comment, r.commentSize);
        if (name == QLatin1String("rule_id"))
            return ruleIdText(r.id);
        if (m_withWql && name == QLatin1String("rule_wql"))
            return r.wql;
        throw DataServiceError(status::Fail, QStringLiteral("no field named ") + name);
    }

    void close() override
    {
        if (!m_l)
            return;
        if (const auto spare = m_spare.lock())
            spare->giveBack(std::move(m_l));
        m_l.reset();
    }

private:
    const Listed &current() const
    {
        if (!m_l || m_pos >= m_l->order.size())
            throw DataServiceError(status::Fail, QStringLiteral("no current row"));
        return m_l->rules[m_l->order[m_pos].rule];
    }

    std::unique_ptr<Listing> m_l; // null once closed
    std::weak_ptr<ListingSpare> m_spare;
    size_t m_pos = 0;
    bool m_withWql;
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
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
        // The text first, then its size: the order in which SQLite keeps the pointer valid.
        const auto *name = reinterpret_cast<const char *>(sqlite3_column_text(st, 1));
        const int nameSize = sqlite3_column_bytes(st, 1);
        const auto *comment = reinterpret_cast<const char *>(sqlite3_column_text(st, 2));
        const int commentSize = sqlite3_column_bytes(st, 2);
        out.add(sqlite3_column_int(st, 0), sqlite3_column_int(st, 3), name ? name : "", nameSize,
                comment ? comment : "", commentSize);
    }
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
        out.add(q.value(0).toInt(), q.value(3).toInt(), name.constData(), name.size(), comment.constData(),
                comment.size());
    }
    q.finish();
}

} // namespace

bool nameLess(const QString &a, int idA, const QString &b, int idB)
{
    if (const int c = a.compare(b, Qt::CaseInsensitive))
        return c < 0;
    if (const int c = a.compare(b))
        return c < 0;
    return idA < idB;
}

ListingSpare::ListingSpare() = default;
ListingSpare::~ListingSpare() = default;

std::unique_ptr<RowSet> listRules(StoreDb &db, qint16 category, const std::shared_ptr<ListingSpare> &spare)
{
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
