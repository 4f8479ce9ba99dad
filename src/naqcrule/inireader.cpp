#include "naqcrule/inireader.h"

#include "dataservice/recordsizes.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

namespace qarvo {

namespace {

// Windows-1252 differs from Latin-1 only in 0x80-0x9F; the five unassigned bytes map through.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

QString decodeCp1252(QByteArrayView bytes)
{
    QString out(bytes.size(), Qt::Uninitialized);
    char16_t *dst = reinterpret_cast<char16_t *>(out.data());
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const auto b = static_cast<unsigned char>(bytes[i]);
        dst[i] = (b >= 0x80 && b < 0xA0) ? kCp1252High[b - 0x80] : char16_t(b);
    }
    return out;
}

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

inline bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\v' || c == u'\f';
}

QStringView trimmed(QStringView s)
{
    qsizetype b = 0;
    qsizetype e = s.size();
    while (b < e && isBlank(s[b]))
        ++b;
    while (e > b && isBlank(s[e - 1]))
        --e;
    return s.sliced(b, e - b);
}

// Names are nearly always ASCII: those are folded in one pass over one copy; anything else
// goes through full Unicode case folding.
QString folded(QStringView s)
{
    QString out = s.toString();
    char16_t *d = reinterpret_cast<char16_t *>(out.data());
    bool ascii = true;
    for (qsizetype i = 0, n = out.size(); i < n; ++i) {
        if (d[i] >= u'A' && d[i] <= u'Z')
            d[i] += u'a' - u'A';
        else if (d[i] >= 0x80)
            ascii = false;
    }
    return ascii ? out : std::move(out).toCaseFolded();
}

// What a lookup hands back, worked out once when the file is read: the text up to a NUL, as a
// zero-terminated buffer would hold it, without one pair of surrounding double quotes.
QString storedValue(QStringView text)
{
    const qsizetype nul = text.indexOf(QChar(u'\0'));
    if (nul >= 0)
        text = text.first(nul);
    if (text.size() >= 2 && text.front() == u'"' && text.back() == u'"')
        text = text.sliced(1, text.size() - 2);
    return text.toString();
}

} // namespace

QString decodeProfileText(QByteArrayView bytes)
{
    if (bytes.size() >= 2) {
        const auto b0 = static_cast<unsigned char>(bytes[0]);
        const auto b1 = static_cast<unsigned char>(bytes[1]);
        if (b0 == 0xFF && b1 == 0xFE)
            return decodeUtf16(bytes.sliced(2), false);
        if (b0 == 0xFE && b1 == 0xFF)
            return decodeUtf16(bytes.sliced(2), true);
    }
    if (bytes.size() >= 3 && bytes.first(3) == QByteArrayView("\xEF\xBB\xBF", 3)) {
        // A file that says it is UTF-8 is taken at its word; bad sequences become U+FFFD.
        return QString::fromUtf8(bytes.sliced(3));
    }
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8.decode(bytes);
    if (!utf8.hasError())
        return text;
    return decodeCp1252(bytes);
}

IniFile IniFile::fromBytes(QByteArrayView bytes)
{
    IniFile ini;
    const QString text = decodeProfileText(bytes);
    const QStringView all(text);

    qsizetype current = -1; // index of the section being read; -1 outside any
    qsizetype pos = 0;
    const qsizetype n = all.size();
    while (pos < n) {
        qsizetype end = pos;
        while (end < n && all[end] != u'\n' && all[end] != u'\r')
            ++end;
        const QStringView line = trimmed(all.sliced(pos, end - pos));
        // One line break: "\r\n", "\n" or a lone "\r".
        pos = end;
        if (pos < n && all[pos] == u'\r') {
            ++pos;
            if (pos < n && all[pos] == u'\n')
                ++pos;
        } else if (pos < n) {
            ++pos;
        }

        if (line.isEmpty() || line.front() == u';')
            continue;
        if (line.front() == u'[') {
            const qsizetype close = line.lastIndexOf(u']');
            if (close > 0) {
                const QString name = folded(trimmed(line.sliced(1, close - 1)));
                if (!ini.m_sectionIndex.contains(name)) {
                    ini.m_sections.emplaceBack();
                    current = ini.m_sections.size() - 1;
                    ini.m_sectionIndex.insert(name, current);
                } else {
                    // A repeated section is skipped as a whole: lookups only ever see the first.
                    current = -1;
                }
                continue;
            }
            // No closing bracket: the line is read as an ordinary entry.
        }
        if (current < 0)
            continue;
        const qsizetype eq = line.indexOf(u'=');
        const QStringView keyPart = trimmed(eq < 0 ? line : line.first(eq));
        if (keyPart.isEmpty())
            continue;
        auto &values = ini.m_sections[current].m_values;
        // One hash probe: the slot is new exactly when the table grew.
        const qsizetype before = values.size();
        QString &slot = values[folded(keyPart)];
        if (values.size() != before && eq >= 0)
            slot = storedValue(trimmed(line.sliced(eq + 1)));
    }
    ini.m_sections.squeeze();
    return ini;
}

IniFile IniFile::load(const QString &path)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isFile() || info.size() > MaxFileBytes)
        return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // Read with a cap as well: the size seen above may not be the size read.
    const QByteArray bytes = file.read(MaxFileBytes + 1);
    if (bytes.size() > MaxFileBytes)
        return {};
    return fromBytes(bytes);
}

const IniFile::Section *IniFile::section(QStringView name) const
{
    const auto s = m_sectionIndex.constFind(folded(name));
    return s == m_sectionIndex.constEnd() ? nullptr : &m_sections.at(*s);
}

QString IniFile::Section::value(const QString &key, qsizetype bufferSize) const
{
    // Keys are stored folded, so a key found as given needs no folding of its own; only a miss
    // pays for it. The copy handed back shares the stored text unless it has to be cut.
    auto v = m_values.constFind(key);
    if (v == m_values.constEnd()) {
        const QString foldedKey = folded(key);
        if (foldedKey == key)
            return {};
        v = m_values.constFind(foldedKey);
        if (v == m_values.constEnd())
            return {};
    }
    return fitRecordText(*v, bufferSize);
}

QString IniFile::value(QStringView section, QStringView key, qsizetype bufferSize) const
{
    const Section *s = this->section(section);
    return s ? s->value(key.toString(), bufferSize) : QString();
}

} // namespace qarvo
