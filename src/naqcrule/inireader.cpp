#include "naqcrule/inireader.h"

#include "dataservice/recordsizes.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <bit>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace qarvo {

namespace {

// Windows-1252 differs from Latin-1 only in 0x80-0x9F; the five unassigned bytes map through.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

QString decodeUtf16(QByteArrayView bytes, bool bigEndian)
{
    const qsizetype units = bytes.size() / 2; // a dangling odd byte is dropped
    QString out(units, Qt::Uninitialized);
    char16_t *dst = reinterpret_cast<char16_t *>(out.data());
    const auto *src = reinterpret_cast<const unsigned char *>(bytes.data());
    for (qsizetype i = 0; i < units; ++i) {
        const unsigned lo = src[2 * i + (bigEndian ? 1 : 0)];
        const unsigned hi = src[2 * i + (bigEndian ? 0 : 1)];
        dst[i] = char16_t(lo | (hi << 8));
    }
    return out;
}

bool isAscii(const char *bytes, qsizetype size)
{
    qsizetype i = 0;
    for (; i + 8 <= size; i += 8) {
        quint64 word;
        std::memcpy(&word, bytes + i, 8);
        if (word & 0x8080808080808080ULL)
            return false;
    }
    for (; i < size; ++i) {
        if (static_cast<unsigned char>(bytes[i]) >= 0x80)
            return false;
    }
    return true;
}

// Values are decoded one at a time, into a string whose buffer is reused where it can be; a new
// buffer is made to measure.
void makeRoom(QString &out, qsizetype size)
{
    if (out.isDetached() && out.capacity() >= size)
        out.resize(size);
    else
        out = QString(size, Qt::Uninitialized);
}

void decodeCp1252(const char *bytes, qsizetype size, QString &out)
{
    makeRoom(out, size);
    char16_t *dst = reinterpret_cast<char16_t *>(out.data());
    for (qsizetype i = 0; i < size; ++i) {
        const auto b = static_cast<unsigned char>(bytes[i]);
        dst[i] = (b >= 0x80 && b < 0xA0) ? kCp1252High[b - 0x80] : char16_t(b);
    }
}

// A value always ends at an ASCII byte or at the end of the file, and no malformed sequence ever
// takes an ASCII byte with it, so each value decodes exactly as it would inside the whole text; a
// byte-order mark at its start is a character like any other.
void decodeUtf8(const char *bytes, qsizetype size, QString &out)
{
    if (!isAscii(bytes, size)) {
        QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless
                                                      | QStringDecoder::Flag::ConvertInitialBom);
        out = utf8.decode(QByteArrayView(bytes, size));
        return;
    }
    if (!out.isDetached() || out.capacity() < size) {
        // A new string, widened by Qt's vectorised conversion.
        out = QString::fromLatin1(bytes, size);
        return;
    }
    out.resize(size);
    char16_t *dst = reinterpret_cast<char16_t *>(out.data());
    for (qsizetype i = 0; i < size; ++i)
        dst[i] = char16_t(bytes[i]);
}

// Whether the bytes are valid UTF-8, without decoding them whole. Only the runs of non-ASCII
// bytes can be invalid, and each is checked on its own; a long run is cut before a lead byte so
// that the check needs no more than a small buffer.
bool isValidUtf8(const char *bytes, qsizetype size)
{
    constexpr qsizetype Piece = 64 * 1024;
    const auto *b = reinterpret_cast<const unsigned char *>(bytes);
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString scratch;
    qsizetype i = 0;
    while (i < size) {
        const qsizetype ascii = std::min(size - i, qsizetype(4096));
        if (isAscii(bytes + i, ascii)) {
            i += ascii;
            continue;
        }
        while (b[i] < 0x80)
            ++i;
        qsizetype end = i + 1;
        while (end < size && b[end] >= 0x80 && (end - i < Piece || (b[end] & 0xC0) == 0x80))
            ++end;
        scratch.resize(utf8.requiredSpace(end - i));
        utf8.appendToBuffer(scratch.data(), QByteArrayView(bytes + i, end - i));
        if (utf8.hasError())
            return false;
        i = end;
    }
    return true;
}

template<class Unit>
inline bool isBlank(Unit c)
{
    return c == Unit(' ') || c == Unit('\t') || c == Unit('\v') || c == Unit('\f');
}

// Names are nearly always ASCII: those are folded in place; anything else goes through full
// Unicode case folding.
void fold(QString &s)
{
    char16_t *d = reinterpret_cast<char16_t *>(s.data());
    bool ascii = true;
    for (qsizetype i = 0, n = s.size(); i < n; ++i) {
        if (d[i] >= u'A' && d[i] <= u'Z')
            d[i] += u'a' - u'A';
        else if (d[i] >= 0x80)
            ascii = false;
    }
    if (!ascii)
        s = std::move(s).toCaseFolded();
}

QString folded(QStringView s)
{
    QString out = s.toString();
    fold(out);
    return out;
}

std::u16string_view view(const QString &s)
{
    return std::u16string_view(reinterpret_cast<const char16_t *>(s.constData()), size_t(s.size()));
}

// Names are a few characters long and the tables hold only what a reader asked for, so a few
// multiplications, four characters at a time, spread them well enough.
quint32 nameHash(std::u16string_view name)
{
    quint64 hash = quint64(name.size()) * 0x9E3779B97F4A7C15ULL;
    size_t i = 0;
    for (; i + 4 <= name.size(); i += 4) {
        quint64 word;
        std::memcpy(&word, name.data() + i, sizeof word);
        hash = (hash ^ word) * 0xFF51AFD7ED558CCDULL;
    }
    for (; i < name.size(); ++i)
        hash = (hash ^ name[i]) * 0xC4CEB9FE1A85EC53ULL;
    return quint32(hash >> 32);
}

} // namespace

int IniFile::NameTable::find(std::u16string_view name) const
{
    if (m_buckets.empty())
        return -1;
    const quint32 hash = nameHash(name);
    const size_t mask = m_buckets.size() - 1;
    for (size_t i = hash & mask;; i = (i + 1) & mask) {
        const Bucket &bucket = m_buckets[i];
        if (bucket.number < 0)
            return -1;
        if (bucket.hash == hash) {
            if (std::u16string_view(m_names[size_t(bucket.number)]) == name)
                return bucket.number;
        }
    }
}

int IniFile::NameTable::add(std::u16string_view name)
{
    if (const int known = find(name); known >= 0)
        return known;
    m_names.emplace_back(name);
    // At most a quarter full, so that a probe mostly ends at its first bucket.
    if (m_names.size() * 4 > m_buckets.size()) {
        m_buckets.assign(std::max<size_t>(16, m_buckets.size() * 2), Bucket());
        for (size_t n = 0; n < m_names.size(); ++n)
            place(int(n), nameHash(m_names[n]));
    } else {
        place(int(m_names.size()) - 1, nameHash(name));
    }
    return int(m_names.size()) - 1;
}

void IniFile::NameTable::place(int number, quint32 hash)
{
    const size_t mask = m_buckets.size() - 1;
    size_t i = hash & mask;
    while (m_buckets[i].number >= 0)
        i = (i + 1) & mask;
    m_buckets[i] = {hash, number};
}

void IniFile::Selection::add(QStringView section, const QStringList &keys)
{
    const int number = m_sections.add(view(folded(section)));
    if (size_t(number) == m_keys.size())
        m_keys.push_back(std::make_shared<NameTable>());
    NameTable &names = *m_keys[size_t(number)];
    for (const QString &key : keys)
        names.add(view(folded(key)));
}

int IniFile::find(const NameTable &table, QStringView name)
{
    return table.find(view(folded(name)));
}

// Walks the lines of a file once and notes where the selected entries of the first occurrence of
// each selected section stand. `Unit` is a byte of 8-bit or UTF-8 text, or a UTF-16 code unit; the
// characters that shape an INI file are all ASCII, and no byte of a malformed sequence ever
// swallows one, so the walk is the same for every encoding.
class IniFile::Parser
{
public:
    Parser(IniFile &file, const Selection &selection) : m_file(file), m_selection(selection) {}

    void parse(const QByteArray &bytes, Encoding encoding)
    {
        m_bytes = bytes;
        m_encoding = encoding;
        m_hasNul = bytes.contains('\0');
        walk(bytes.constData(), bytes.size());
    }
    void parse(const QString &text)
    {
        m_wide = text;
        m_encoding = Encoding::Utf16;
        m_hasNul = text.contains(QChar(0));
        walk(reinterpret_cast<const char16_t *>(text.constData()), text.size());
    }

private:
    QString decode(const char *s, qsizetype n) const
    {
        QString text;
        if (m_encoding == Encoding::Utf8)
            decodeUtf8(s, n, text);
        else
            decodeCp1252(s, n, text);
        return text;
    }
    static QString decode(const char16_t *s, qsizetype n)
    {
        return QString(reinterpret_cast<const QChar *>(s), n);
    }

    // The folded name in m_name, reusing its buffer: most names are ASCII and need no decoding.
    template<class Unit>
    std::u16string_view foldedName(const Unit *s, qsizetype n)
    {
        m_name.resize(size_t(n));
        for (qsizetype i = 0; i < n; ++i) {
            const auto c = char16_t(static_cast<std::make_unsigned_t<Unit>>(s[i]));
            if (c >= 0x80) {
                const QString name = folded(decode(s, n));
                m_name.assign(view(name));
                return m_name;
            }
            m_name[size_t(i)] = (c >= u'A' && c <= u'Z') ? char16_t(c + (u'a' - u'A')) : c;
        }
        return m_name;
    }

    static qsizetype lineEnd(const char *s, qsizetype from, qsizetype n)
    {
#ifdef __SSE2__
        // Both line-break characters in one pass, sixteen bytes at a time: lines are short, and
        // searching each twice cost more in calls than in bytes.
        const __m128i lf = _mm_set1_epi8('\n');
        const __m128i cr = _mm_set1_epi8('\r');
        for (; from + 16 <= n; from += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + from));
            if (const int hits = _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(v, lf), _mm_cmpeq_epi8(v, cr))))
                return from + std::countr_zero(unsigned(hits));
        }
#endif
        while (from < n && s[from] != '\n' && s[from] != '\r')
            ++from;
        return from;
    }
    static qsizetype lineEnd(const char16_t *s, qsizetype from, qsizetype n)
    {
        while (from < n && s[from] != u'\n' && s[from] != u'\r')
            ++from;
        return from;
    }

    static qsizetype find(const char *s, qsizetype b, qsizetype e, char c)
    {
        const void *hit = std::memchr(s + b, c, size_t(e - b));
        return hit ? static_cast<const char *>(hit) - s : e;
    }
    static qsizetype find(const char16_t *s, qsizetype b, qsizetype e, char c)
    {
        while (b < e && s[b] != char16_t(c))
            ++b;
        return b;
    }

    template<class Unit>
    static void trim(const Unit *s, qsizetype &b, qsizetype &e)
    {
        while (b < e && isBlank(s[b]))
            ++b;
        while (e > b && isBlank(s[e - 1]))
            --e;
    }

    template<class Unit>
    void walk(const Unit *s, qsizetype n)
    {
        Section *current = nullptr; // the kept section being read; null in any other
        qsizetype pos = 0;
        while (pos < n) {
            const qsizetype end = lineEnd(s, pos, n);
            qsizetype b = pos;
            qsizetype e = end;
            // One line break: "\r\n", "\n" or a lone "\r".
            pos = end;
            if (pos < n && s[pos] == Unit('\r')) {
                ++pos;
                if (pos < n && s[pos] == Unit('\n'))
                    ++pos;
            } else if (pos < n) {
                ++pos;
            }
            trim(s, b, e);
            if (b == e || s[b] == Unit(';'))
                continue;
            if (s[b] == Unit('[')) {
                qsizetype close = e - 1;
                while (close > b && s[close] != Unit(']'))
                    --close;
                if (close > b) {
                    qsizetype nb = b + 1;
                    qsizetype ne = close;
                    trim(s, nb, ne);
                    current = enterSection(foldedName(s + nb, ne - nb));
                    continue;
                }
                // No closing bracket: the line is read as an ordinary entry.
            }
            if (current)
                readEntry(*current, s, b, e);
        }
    }

    Section *enterSection(std::u16string_view name)
    {
        const int wanted = m_selection.m_sections.find(name);
        if (wanted < 0)
            return nullptr;
        // A repeated section is skipped as a whole: lookups only ever see the first. A name met
        // before keeps the number it was given then.
        if (m_file.m_index.add(name) < int(m_file.m_sections.size()))
            return nullptr;
        m_nextKey = 0;
        Section &section = m_file.m_sections.emplaceBack();
        section.m_keys = m_selection.m_keys[size_t(wanted)];
        section.m_values.resize(size_t(section.m_keys->size()));
        section.m_bytes = m_bytes;
        section.m_wide = m_wide;
        section.m_encoding = m_encoding;
        return &section;
    }

    template<class Unit>
    void readEntry(Section &section, const Unit *s, qsizetype b, qsizetype e)
    {
        const qsizetype eq = find(s, b, e, '=');
        qsizetype kb = b;
        qsizetype ke = eq;
        trim(s, kb, ke);
        if (kb == ke)
            return;
        // Keys mostly come in the order in which they were selected, so the one after the last
        // found is tried first.
        const NameTable &keys = *section.m_keys;
        const int key = keys.is(m_nextKey, s + kb, ke - kb) ? m_nextKey
                                                             : keys.find(foldedName(s + kb, ke - kb));
        if (key >= 0)
            m_nextKey = key + 1;
        if (key < 0 || section.m_values[size_t(key)].at >= 0)
            return;
        Section::Span &value = section.m_values[size_t(key)];
        value = {eq, 0}; // a key without "=" is there, with nothing in it
        if (eq == e)
            return;
        qsizetype vb = eq + 1;
        qsizetype ve = e;
        trim(s, vb, ve);
        // What a zero-terminated buffer would hold, without one pair of surrounding quotes. A NUL
        // and a quote are one unit in every encoding read here, so this works on the raw text.
        if (m_hasNul)
            ve = find(s, vb, ve, '\0');
        if (ve - vb >= 2 && s[vb] == Unit('"') && s[ve - 1] == Unit('"')) {
            ++vb;
            --ve;
        }
        value = {vb, ve - vb};
    }

    IniFile &m_file;
    const Selection &m_selection;
    QByteArray m_bytes;
    QString m_wide;
    Encoding m_encoding = Encoding::Utf8;
    std::u16string m_name;
    bool m_hasNul = false; // looked for once in the whole text, not in every value
    int m_nextKey = 0;     // in the kept section being read
};

IniFile IniFile::fromBytes(QByteArrayView bytes, const Selection &selection)
{
    return parse(bytes.toByteArray(), selection);
}

IniFile IniFile::parse(QByteArray bytes, const Selection &selection)
{
    IniFile ini;
    Parser parser(ini, selection);
    if (bytes.size() >= 2) {
        const auto b0 = static_cast<unsigned char>(bytes[0]);
        const auto b1 = static_cast<unsigned char>(bytes[1]);
        if ((b0 == 0xFF && b1 == 0xFE) || (b0 == 0xFE && b1 == 0xFF)) {
            const QString text = decodeUtf16(QByteArrayView(bytes).sliced(2), b0 == 0xFE);
            bytes = QByteArray();
            parser.parse(text);
            return ini;
        }
    }
    static constexpr QByteArrayView Bom("\xEF\xBB\xBF", 3);
    if (bytes.startsWith(Bom)) {
        // A file that says it is UTF-8 is taken at its word; bad sequences become U+FFFD. The
        // mark is not part of the text, and neither is a second one right behind it.
        bytes.remove(0, QByteArrayView(bytes).sliced(3).startsWith(Bom) ? 6 : 3);
        parser.parse(bytes, Encoding::Utf8);
        return ini;
    }
    parser.parse(bytes, isValidUtf8(bytes.constData(), bytes.size()) ? Encoding::Utf8
                                                                     : Encoding::WindowsLatin);
    return ini;
}

IniFile IniFile::load(const QString &path, const Selection &selection)
{
    if (path.isEmpty())
        return {};
#ifdef Q_OS_UNIX
    // Opened without waiting, so that a FIFO or a device given as a profile cannot hold the
    // reader; only a regular file is read.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return {};
    struct stat info;
    // The size of the file opened, not of whatever the name pointed at a moment earlier; what is
    // read is what that size says, however the file changes meanwhile.
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > MaxFileBytes) {
        ::close(fd);
        return {};
    }
    QByteArray bytes(qsizetype(info.st_size), Qt::Uninitialized);
    qsizetype got = 0;
    while (got < bytes.size()) {
        const ssize_t n = ::read(fd, bytes.data() + got, size_t(bytes.size() - got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += qsizetype(n);
    }
    ::close(fd);
#else
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly) || file.size() > MaxFileBytes)
        return {};
    QByteArray bytes = file.read(MaxFileBytes);
    const qsizetype got = bytes.size();
#endif
    bytes.truncate(got);
    return parse(std::move(bytes), selection);
}

const IniFile::Section *IniFile::section(QStringView name) const
{
    const int index = find(m_index, name);
    return index < 0 ? nullptr : &m_sections.at(index);
}

QString IniFile::Section::value(QStringView key, qsizetype bufferSize) const
{
    return m_keys ? value(find(*m_keys, key), bufferSize) : QString();
}

QString IniFile::Section::value(int key, qsizetype bufferSize) const
{
    QString text;
    value(key, bufferSize, text);
    return text;
}

void IniFile::Section::value(int key, qsizetype bufferSize, QString &text) const
{
    if (key < 0 || size_t(key) >= m_values.size() || m_values[size_t(key)].size == 0) {
        text.clear();
        return;
    }
    const Span span = m_values[size_t(key)];
    switch (m_encoding) {
    case Encoding::Utf16:
        makeRoom(text, span.size);
        std::memcpy(text.data(), m_wide.constData() + span.at, size_t(span.size) * sizeof(QChar));
        break;
    case Encoding::Utf8:
        decodeUtf8(m_bytes.constData() + span.at, span.size, text);
        break;
    case Encoding::WindowsLatin:
        decodeCp1252(m_bytes.constData() + span.at, span.size, text);
        break;
    }
    if (text.size() >= bufferSize)
        text = fitRecordText(text, bufferSize);
}

QString IniFile::Section::decoded(qsizetype at, qsizetype size) const
{
    QString text;
    if (m_encoding == Encoding::Utf8)
        decodeUtf8(m_bytes.constData() + at, size, text);
    else
        decodeCp1252(m_bytes.constData() + at, size, text);
    return text;
}

QString IniFile::value(QStringView section, QStringView key, qsizetype bufferSize) const
{
    const Section *s = this->section(section);
    return s ? s->value(key, bufferSize) : QString();
}

int IniFile::sectionCount() const
{
    return int(m_sections.size());
}

} // namespace qarvo
