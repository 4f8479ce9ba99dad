#include "conditions/catalogue.h"

#include "conditions/linereader.h"

#include <QDir>
#include <QIODevice>
#include <QStringDecoder>

#include <cstring>

namespace qarvo::catalogue {

namespace {

// Strip images of the class tree: folders for the root, categories and classes, the leaf picture
// for plain lines.
constexpr int FolderImage = 0;
constexpr int FolderSelectedImage = 1;
constexpr int LeafImage = 10;
constexpr int LeafSelectedImage = 9;

bool isAscii(const char *data, qsizetype size)
{
    for (qsizetype i = 0; i < size; ++i) {
        if (static_cast<unsigned char>(data[i]) >= 0x80)
            return false;
    }
    return true;
}

bool lineIs(QByteArrayView line, const char *text)
{
    const auto n = static_cast<qsizetype>(std::strlen(text));
    return line.size() == n && std::memcmp(line.data(), text, size_t(n)) == 0;
}

// The class name as the bytes a matching line can hold: its UTF-8 form and, for names that fit
// in eight bits, the one-byte-per-character form. A byte match is confirmed by decoding, so the
// scan over a large file compares bytes only and decodes nothing until it hits.
class NameMatcher
{
public:
    explicit NameMatcher(QStringView name) : m_name(name.toString())
    {
        m_utf8 = m_name.toUtf8();
        bool fitsLatin1 = true;
        for (QChar c : name) {
            if (c.unicode() > 0xFF) {
                fitsLatin1 = false;
                break;
            }
        }
        if (fitsLatin1) {
            QByteArray latin1 = m_name.toLatin1();
            if (latin1 != m_utf8)
                m_latin1 = latin1;
        }
    }

    bool matches(QByteArrayView line) const
    {
        if (!sameBytes(line, m_utf8) && (m_latin1.isEmpty() || !sameBytes(line, m_latin1)))
            return false;
        return decodeLine(line.data(), line.size()) == m_name;
    }

private:
    static bool sameBytes(QByteArrayView line, const QByteArray &bytes)
    {
        return line.size() == bytes.size()
               && std::memcmp(line.data(), bytes.constData(), size_t(bytes.size())) == 0;
    }

    QString m_name;
    QByteArray m_utf8;
    QByteArray m_latin1;
};

// The length of a "Values{...}" qualifier: up to the first "}" outside its quoted texts, or the
// whole rest when it never closes.
qsizetype meaningsLength(QStringView text)
{
    bool quoted = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (quoted && c == u'\\')
            ++i;
        else if (c == u'"')
            quoted = !quoted;
        else if (!quoted && c == u'}')
            return i + 1;
    }
    return text.size();
}

} // namespace

// ---- tree ---------------------------------------------------------------------------------------

void ClassTree::clear()
{
    nodes.clear();
    entries.clear();
}

const NodeEntry *ClassTree::FindNodeEntry(QStringView text) const
{
    for (const NodeEntry &entry : entries) {
        if (entry.name == text)
            return &entry;
    }
    return nullptr;
}

int ClassTree::addNode(int parent, const QString &text, int image, int selectedImage)
{
    TreeNode node;
    node.text = text;
    node.parent = parent;
    node.image = image;
    node.selectedImage = selectedImage;
    const int index = int(nodes.size());
    nodes.append(std::move(node));
    if (parent >= 0)
        nodes[parent].children.append(index);
    return index;
}

// ---- lines --------------------------------------------------------------------------------------

int descriptionMarkerLength(const char *line, qsizetype size)
{
    const auto *b = reinterpret_cast<const unsigned char *>(line);
    if (size >= 2 && b[0] == 0xA6 && b[1] == 0xA6)
        return 2;
    // "¦¦" and "└" as a file saved in UTF-8 holds them.
    if (size >= 4 && b[0] == 0xC2 && b[1] == 0xA6 && b[2] == 0xC2 && b[3] == 0xA6)
        return 4;
    if (size >= 3 && b[0] == 0xE2 && b[1] == 0x94 && b[2] == 0x94)
        return 3;
    return 0;
}

QString decodeLine(const char *line, qsizetype size)
{
    if (isAscii(line, size))
        return QString::fromLatin1(line, size);
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8(QByteArrayView(line, size));
    if (!utf8.hasError())
        return text;
    return QString::fromLatin1(line, size);
}

QString unescapeDescription(QStringView text)
{
    QString out;
    out.reserve(text.size());
    if (text.isEmpty())
        return out;
    // The first character is taken as it stands, backslash or not: descriptions that open with
    // a literal "\n" have always shown it that way.
    out.append(text.front());
    for (qsizetype i = 1; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c != u'\\' || i + 1 >= text.size()) {
            out.append(c);
            continue;
        }
        const QChar next = text[++i];
        switch (next.unicode()) {
        case u'n':
            out.append(u"\r\n");
            break;
        case u't':
            out.append(u"   ");
            break;
        default: // "\\", "\"" and any other escaped character: the character itself
            out.append(next);
            break;
        }
    }
    return out;
}

FieldRecord parseFieldLine(QStringView line)
{
    FieldRecord field;
    QStringView rest;
    const qsizetype ref = line.indexOf(u" Ref ");
    if (ref > 0) {
        field.type = line.left(ref + 4).toString();
        rest = line.mid(ref + 5);
    } else {
        const qsizetype space = line.indexOf(u' ');
        if (space < 0) {
            field.type = line.toString();
        } else {
            field.type = line.left(space).toString();
            rest = line.mid(space + 1);
        }
    }

    const qsizetype semicolon = rest.indexOf(u';');
    if (semicolon >= 0)
        field.name = rest.left(semicolon).toString();

    auto qualifier = [&rest](QStringView opening, QChar closing) {
        const qsizetype from = rest.indexOf(opening);
        if (from < 0)
            return QString();
        const qsizetype to = rest.indexOf(closing, from + opening.size());
        return (to < 0 ? rest.mid(from) : rest.mid(from, to - from + 1)).toString();
    };
    field.valueMap = qualifier(u"ValueMap{", u'}');
    field.units = qualifier(u"Units(", u')');
    if (const qsizetype from = rest.indexOf(u"Values{"); from >= 0)
        field.meanings = rest.mid(from, meaningsLength(rest.mid(from))).toString();
    return field;
}

QStringList valueMapChoices(QStringView valueMap)
{
    constexpr QStringView opening = u"ValueMap{";
    const qsizetype start = valueMap.indexOf(opening);
    QStringList choices;
    if (start < 0)
        return choices;
    for (QStringView piece : valueMap.mid(start + opening.size()).split(u',')) {
        const qsizetype first = piece.indexOf(u'"');
        const qsizetype second = first < 0 ? -1 : piece.indexOf(u'"', first + 1);
        if (second > first)
            choices << piece.mid(first + 1, second - first - 1).toString();
    }
    return choices;
}

QString unitsText(QStringView units)
{
    constexpr QStringView opening = u"Units(";
    const qsizetype start = units.indexOf(opening);
    const qsizetype first = start < 0 ? -1 : units.indexOf(u'"', start + opening.size());
    if (first < 0)
        return {};
    const qsizetype second = units.indexOf(u'"', first + 1);
    return (second < 0 ? units.mid(first + 1) : units.mid(first + 1, second - first - 1))
        .toString();
}

QStringList valueMeanings(QStringView meanings)
{
    QStringList out;
    const qsizetype start = meanings.indexOf(u"Values{");
    if (start < 0)
        return out;
    QString current;
    bool quoted = false;
    for (qsizetype i = start + 7; i < meanings.size(); ++i) {
        const QChar c = meanings[i];
        if (!quoted) {
            if (c == u'}')
                break;
            if (c == u'"')
                quoted = true;
        } else if (c == u'\\' && i + 1 < meanings.size()) {
            current.append(meanings[++i]);
        } else if (c == u'"') {
            out << current;
            current.clear();
            quoted = false;
        } else {
            current.append(c);
        }
    }
    return out;
}

QString FieldFileFor(QStringView className)
{
    const QString sep = QDir::separator();
    if (className.startsWith(u"Win32_"))
        return QStringLiteral("data") + sep + QStringLiteral("win32.dat");
    if (className.startsWith(u"CIM_"))
        return QStringLiteral("data") + sep + QStringLiteral("cim.dat");
    return QStringLiteral("data") + sep + QStringLiteral("other.dat");
}

// ---- class.dat ----------------------------------------------------------------------------------

void readClassList(QIODevice &device, ClassTree &tree)
{
    tree.clear();
    const int root = tree.addNode(-1, QStringLiteral("WMI"), FolderImage, FolderSelectedImage);
    tree.entries.append({QStringLiteral("WMI"), QStringLiteral("WMI")});

    // A category or class that comes before any of its parents hangs off the root.
    int level1 = root;
    int level2 = root;
    int lastInserted = root;

    LineReader reader(device);
    QByteArrayView raw;
    while (reader.next(raw)) {
        const char first = raw.isEmpty() ? '\0' : raw.front();
        switch (first) {
        case '!': {
            const QString name = decodeLine(raw.data() + 1, raw.size() - 1);
            level1 = tree.addNode(root, name, FolderImage, FolderSelectedImage);
            tree.entries.append({name, name});
            tree.nodes[root].expanded = true;
            lastInserted = level1;
            break;
        }
        case '@': {
            const QString name = decodeLine(raw.data() + 1, raw.size() - 1);
            level2 = tree.addNode(level1, name, FolderImage, FolderSelectedImage);
            tree.entries.append({name, name});
            tree.nodes[level1].expanded = true;
            lastInserted = level2;
            break;
        }
        case '#': {
            const QString rest = decodeLine(raw.data() + 1, raw.size() - 1);
            const qsizetype dollar = rest.indexOf(u'$');
            // Without a "$" the class name is empty and the whole rest is its description.
            const QString name = dollar < 0 ? QString() : rest.left(dollar);
            const QString description = dollar < 0 ? rest : rest.mid(dollar + 1);
            lastInserted = tree.addNode(level2, name, FolderImage, FolderSelectedImage);
            tree.nodes[lastInserted].isClass = true;
            tree.entries.append({name, description});
            tree.nodes[level2].expanded = true;
            break;
        }
        default:
            tree.addNode(lastInserted, decodeLine(raw.data(), raw.size()), LeafImage,
                         LeafSelectedImage);
            break;
        }
    }
}

// ---- field files --------------------------------------------------------------------------------

ClassFields readClassFields(QIODevice &device, QStringView className)
{
    ClassFields result;
    LineReader reader(device);
    QByteArrayView raw;

    const NameMatcher name(className);
    for (;;) {
        if (!reader.next(raw))
            return result;
        if (name.matches(raw))
            break;
    }
    result.found = true;

    if (!reader.next(raw))
        return result;
    result.nameSpace = decodeLine(raw.data(), raw.size());

    // The line after the namespace is always taken, whether or not it holds a description.
    if (!reader.next(raw))
        return result;
    if (!raw.isEmpty() && raw.front() == '@')
        result.description = decodeLine(raw.data() + 1, raw.size() - 1);

    while (reader.next(raw)) {
        if (lineIs(raw, "}"))
            break;
        if (lineIs(raw, "{") || descriptionMarkerLength(raw.data(), raw.size()) > 0)
            continue;

        FieldRecord field = parseFieldLine(decodeLine(raw.data(), raw.size()));
        // Every field line owns the line after it, whatever that holds; a field written
        // directly before "}" therefore runs on into the next block.
        if (reader.next(raw)) {
            const int marker = descriptionMarkerLength(raw.data(), raw.size());
            if (marker > 0)
                field.description =
                    unescapeDescription(decodeLine(raw.data() + marker, raw.size() - marker));
            result.fields.append(std::move(field));
        } else {
            result.fields.append(std::move(field));
            break;
        }
    }
    return result;
}

// ---- class names -------------------------------------------------------------------------------

QStringList readClassNames(QIODevice &device)
{
    QStringList names;
    LineReader reader(device);
    QByteArrayView raw;
    while (reader.next(raw)) {
        if (raw.isEmpty() || raw.front() != '#')
            continue;
        // The same cut as the tree's: the name ends at the first "$"; without one it is empty.
        const QString rest = decodeLine(raw.data() + 1, raw.size() - 1);
        const qsizetype dollar = rest.indexOf(u'$');
        if (dollar > 0)
            names.append(rest.left(dollar));
    }
    return names;
}

} // namespace qarvo::catalogue
