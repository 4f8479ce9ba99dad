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
