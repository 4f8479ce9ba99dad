#pragma once

// A read-only INI file with the lookup rules that profile tools rely on: section and key names
// match without regard to case, the first occurrence of a section and of a key wins, a value in
// double quotes comes back without them, and every read is limited to a buffer size given in
// characters (terminator included), so a read returns at most size - 1 characters.
//
// The text is UTF-16 (either byte order) or UTF-8 when the file starts with a byte-order mark,
// UTF-8 when the bytes are valid UTF-8, otherwise 8-bit Windows Latin text.
//
// A file keeps only the entries its reader asks for: a profile may hold a million sections, and
// none of them should cost more than the bytes it takes on disk.

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace qarvo {

class IniFile
{
    // Folded names and their numbers, found from a view of their characters: no string is built
    // for a lookup, and a probe costs one short hash and one comparison.
    class NameTable
    {
    public:
        int find(std::u16string_view name) const;
        // Whether `number` is the number of the name in `units`, in any case: a guess checked
        // without folding or hashing. False for a name that is not all ASCII.
        template<class Unit>
        bool is(int number, const Unit *units, qsizetype size) const
        {
            if (number < 0 || size_t(number) >= m_names.size())
                return false;
            const std::u16string &name = m_names[size_t(number)];
            if (name.size() != size_t(size))
                return false;
            for (qsizetype i = 0; i < size; ++i) {
                const auto c = char16_t(static_cast<std::make_unsigned_t<Unit>>(units[i]));
                if (c == name[size_t(i)] && c < 0x80)
                    continue;
                if (c < u'A' || c > u'Z' || char16_t(c + (u'a' - u'A')) != name[size_t(i)])
                    return false;
            }
            return true;
        }
        // Adds `name` with the next number unless it is there; returns its number.
        int add(std::u16string_view name);
        int size() const { return int(m_names.size()); }

    private:
        struct Bucket
        {
            quint32 hash = 0;
            int number = -1; // -1: empty
        };
        void place(int number, quint32 hash);
        std::vector<std::u16string> m_names;
        std::vector<Bucket> m_buckets;
    };

public:
    // Anything larger is not a profile; it is refused before it is read into memory.
    static constexpr qint64 MaxFileBytes = 64 * 1024 * 1024;

    // The sections and keys a reader looks up. Everything else in a file is skipped as it is read.
    class Selection
    {
    public:
        // Names in any case; adding a section again adds to its keys. Each key of a section has
        // a number, its place among the section's keys in the order they were first added.
        void add(QStringView section, const QStringList &keys);

    private:
        friend class IniFile;
        NameTable m_sections;                           // folded names
        std::vector<std::shared_ptr<NameTable>> m_keys; // per section: its folded keys
    };

    IniFile() = default;

    // Parses file contents. Never fails: text that is not INI gives no sections.
    static IniFile fromBytes(QByteArrayView bytes, const Selection &selection);
    // Reads a file. A missing, unreadable, oversized or non-regular file reads as an empty one,
    // the way a lookup in a file that cannot be opened gives the default.
    static IniFile load(const QString &path, const Selection &selection);

    enum class Encoding : quint8 { Utf8, WindowsLatin, Utf16 };

    // The selected entries of one section, looked up without regard to the case of the key.
    class Section
    {
    public:
        // The value of `key`, or "" when it is missing or was not selected, cut to
        // bufferSize - 1 characters.
        QString value(QStringView key, qsizetype bufferSize) const;
        // The same for the key of that number in the selection, without a lookup by name.
        QString value(int key, qsizetype bufferSize) const;
        // The same into `text`, whose buffer is reused: for values that are only looked at.
        void value(int key, qsizetype bufferSize, QString &text) const;
        // The part of the value of the key of that number that `pick` chooses, decoded, without
        // decoding the rest. `pick(units, count)` gets the value cut to bufferSize - 1 characters,
        // as code units (char for 8-bit and UTF-8 text, char16_t for UTF-16), and returns the
        // [begin, end) of the part; only ASCII units may bound it, since those stand for
        // themselves in every encoding read here.
        template<class Pick>
        QString valuePart(int key, qsizetype bufferSize, Pick pick) const
        {
            if (!hasValue(key))
                return {};
            const Span span = m_values[size_t(key)];
            // A value shorter than the buffer in code units decodes to fewer characters still,
            // so it is never cut and its units can be looked at where they stand.
            if (span.size < bufferSize) {
                if (m_encoding == Encoding::Utf16) {
                    const char16_t *units = reinterpret_cast<const char16_t *>(m_wide.constData()) + span.at;
                    const auto [b, e] = pick(units, span.size);
                    return QString(reinterpret_cast<const QChar *>(units + b), e - b);
                }
                const auto [b, e] = pick(m_bytes.constData() + span.at, span.size);
                return decoded(span.at + b, e - b);
            }
            const QString whole = value(key, bufferSize);
            const auto [b, e] = pick(reinterpret_cast<const char16_t *>(whole.constData()), whole.size());
            return whole.sliced(b, e - b);
        }
        // Whether the key of that number has a value that is not empty.
        bool hasValue(int key) const
        {
            return key >= 0 && size_t(key) < m_values.size() && m_values[size_t(key)].size > 0;
        }

    private:
        friend class IniFile;
        // Where a value stands in the text, already cut at a NUL and unquoted; values are only
        // decoded when they are asked for.
        struct Span
        {
            qsizetype at = -1; // -1 until the key's first occurrence
            qsizetype size = 0;
        };
        // The 8-bit or UTF-8 text of `size` bytes at `at`.
        QString decoded(qsizetype at, qsizetype size) const;
        std::shared_ptr<const NameTable> m_keys;
        std::vector<Span> m_values;
        QByteArray m_bytes; // the text of the file, 8-bit or UTF-8 ...
        QString m_wide;     // ... or UTF-16
        Encoding m_encoding = Encoding::Utf8;
    };

    // The first section named `name`, or null when the file has none or it was not selected.
    // Valid as long as this file.
    const Section *section(QStringView name) const;

    // The value of `key` in `section`, or "" when either is missing, cut to bufferSize - 1
    // characters.
    QString value(QStringView section, QStringView key, qsizetype bufferSize) const;

    // The selected sections the file holds.
    int sectionCount() const;

private:
    class Parser;
    static IniFile parse(QByteArray bytes, const Selection &selection);
    static int find(const NameTable &table, QStringView name);
    NameTable m_index; // folded names, numbered as m_sections
    QList<Section> m_sections;
};

} // namespace qarvo
