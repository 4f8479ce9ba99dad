#pragma once

// A read-only INI file with the lookup rules that profile tools rely on: section and key names
// match without regard to case, the first occurrence of a section and of a key wins, a value in
// double quotes comes back without them, and every read is limited to a buffer size given in
// characters (terminator included), so a read returns at most size - 1 characters.

#include <QByteArrayView>
#include <QHash>
#include <QList>
#include <QString>

namespace qarvo {

class IniFile
{
public:
    // Anything larger is not a profile; it is refused before it is read into memory.
    static constexpr qint64 MaxFileBytes = 64 * 1024 * 1024;

    IniFile() = default;

    // Decodes and parses file contents. Never fails: text that is not INI gives no sections.
    static IniFile fromBytes(QByteArrayView bytes);
    // Reads a file. A missing, unreadable, oversized or non-regular file reads as an empty one,
    // the way a lookup in a file that cannot be opened gives the default.
    static IniFile load(const QString &path);

    // The entries of one section, looked up without regard to the case of the key.
    class Section
    {
    public:
        // The value of `key`, or "" when it is missing, cut to bufferSize - 1 characters.
        QString value(const QString &key, qsizetype bufferSize) const;

    private:
        friend class IniFile;
        // Case-folded key -> value, first occurrence kept, already cut at a NUL and unquoted.
        QHash<QString, QString> m_values;
    };

    // The first section named `name`, or null when there is none. Valid as long as this file.
    const Section *section(QStringView name) const;

    // The value of `key` in `section`, or "" when either is missing, cut to bufferSize - 1
    // characters.
    QString value(QStringView section, QStringView key, qsizetype bufferSize) const;

    int sectionCount() const { return int(m_sections.size()); }

private:
    QList<Section> m_sections;
    QHash<QString, qsizetype> m_sectionIndex; // case-folded name -> first section of that name
};

// The text of a profile file: UTF-16 (either byte order) or UTF-8 when the file starts with a
// byte-order mark, UTF-8 when the bytes are valid UTF-8, otherwise 8-bit Windows Latin text.
QString decodeProfileText(QByteArrayView bytes);

} // namespace qarvo
