#include "conditions/cataloguewriter.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSaveFile>

#include <algorithm>
#include <cstring>
#include <memory>

namespace qarvo::catalogue {

namespace {

const QByteArray Marker("\xA6\xA6");

QString classList()
{
    return QStringLiteral("class.dat");
}

QStringList fieldFiles()
{
    return {FieldFileFor(u"Win32_"), FieldFileFor(u"CIM_"), FieldFileFor(u"")};
}

QStringList allFiles()
{
    return fieldFiles() << classList();
}

bool lessByName(const QString &a, const QString &b)
{
    const int order = a.compare(b, Qt::CaseInsensitive);
    return order != 0 ? order < 0 : a < b;
}

// The lines of a file without their ends, and the end it uses (CR LF unless it uses LF alone;
// the manager's own files are CR LF).
struct Lines
{
    QList<QByteArrayView> lines;
    QByteArray end = "\r\n";

    explicit Lines(const QByteArray &bytes)
    {
        qsizetype start = 0;
        bool first = true;
        while (start < bytes.size()) {
            qsizetype lf = bytes.indexOf('\n', start);
            const bool last = lf < 0;
            if (last)
                lf = bytes.size();
            qsizetype stop = lf;
            if (!last && stop > start && bytes[stop - 1] == '\r')
                --stop;
            if (first && !last)
                end = stop == lf ? "\n" : "\r\n";
            first = false;
            lines.append(QByteArrayView(bytes.constData() + start, stop - start));
            start = lf + 1;
        }
    }
};

void appendLine(QByteArray &out, QByteArrayView line, const QByteArray &end)
{
    out.append(line);
    out.append(end);
}

QByteArray classBlock(const CatalogueClass &c, const QByteArray &end)
{
    QByteArray out;
    appendLine(out, c.name.toUtf8(), end);
    appendLine(out, c.nameSpace.toUtf8(), end);
    appendLine(out, '@' + c.description.toUtf8(), end);
    appendLine(out, "{", end);
    for (const FieldRecord &f : c.fields) {
        appendLine(out, fieldLine(f), end);
        appendLine(out, Marker + escapeDescription(f.description).toUtf8(), end);
    }
    appendLine(out, "}", end);
    return out;
}

QByteArray classLine(const CatalogueClass &c)
{
    return '#' + c.name.toUtf8() + '$' + c.description.toUtf8();
}

enum class Change { Added, Replaced, Unchanged };

// A class is replaced where the reader finds it: from the first line that equals its name to the
// "}" that closes that block. Everything else stays as it was.
QByteArray mergeFieldFile(const QByteArray &old, const QList<const CatalogueClass *> &classes,
                          QHash<QString, Change> &changes)
{
    const Lines file(old);
    const auto &lines = file.lines;
    QHash<QString, const CatalogueClass *> wanted;
    for (const CatalogueClass *c : classes)
        wanted.insert(c->name, c);

    struct Block
    {
        qsizetype begin;
        qsizetype end;
        const CatalogueClass *c;
    };
    QList<Block> blocks;
    for (qsizetype i = 0; i < lines.size() && !wanted.isEmpty(); ++i) {
        if (lines[i].isEmpty() || descriptionMarkerLength(lines[i].data(), lines[i].size()) > 0)
            continue;
        const auto it = wanted.find(decodeLine(lines[i].data(), lines[i].size()));
        if (it == wanted.end())
            continue;
        qsizetype end = std::min(i + 3, lines.size());
        while (end < lines.size() && lines[end] != "}")
            ++end;
        blocks.append({i, std::min(end + 1, lines.size()), *it});
        wanted.erase(it);
        i = blocks.last().end - 1;
    }

    QByteArray out;
    out.reserve(old.size());
    bool changed = false;
    qsizetype next = 0;
    const auto copy = [&](qsizetype from, qsizetype to) {
        for (qsizetype i = from; i < to; ++i)
            appendLine(out, lines[i], file.end);
    };
    for (const Block &b : std::as_const(blocks)) {
        copy(next, b.begin);
        QByteArray original;
        for (qsizetype i = b.begin; i < b.end; ++i)
            appendLine(original, lines[i], file.end);
        const QByteArray block = classBlock(*b.c, file.end);
        changes.insert(b.c->name, block == original ? Change::Unchanged : Change::Replaced);
        changed = changed || block != original;
        out.append(block);
        next = b.end;
    }
    copy(next, lines.size());
    for (const CatalogueClass *c : classes) {
        if (!wanted.contains(c->name))
            continue;
        out.append(classBlock(*c, file.end));
        changes.insert(c->name, Change::Added);
        changed = true;
    }
    return changed ? out : old;
}

qsizetype nextLine(const QList<QByteArray> &lines, qsizetype from, const char *firsts)
{
    while (from < lines.size() && !(lines[from].size() > 0 && std::strchr(firsts, lines[from][0])))
        ++from;
    return from;
}

QString classNameOf(const QByteArray &line)
{
    const qsizetype dollar = line.indexOf('$');
    return dollar < 0 ? QString() : decodeLine(line.constData() + 1, dollar - 1);
}

// Classes listed already keep their place; new ones go under their two categories (made when
// missing, at the end of their parent), in name order among the classes there.
QByteArray mergeClassList(const QByteArray &old, const QList<const CatalogueClass *> &classes,
                          QHash<QString, Change> &changes)
{
    const Lines file(old);
    QList<QByteArray> lines;
    lines.reserve(file.lines.size() + classes.size());
    QHash<QString, qsizetype> listed;
    for (QByteArrayView view : file.lines) {
        lines.append(view.toByteArray());
        if (view.startsWith('#')) {
            const QString name = classNameOf(lines.last());
            if (!listed.contains(name))
                listed.insert(name, lines.size() - 1);
        }
    }

    bool changed = false;
    QMap<std::pair<QString, QString>, QList<const CatalogueClass *>> added;
    for (const CatalogueClass *c : classes) {
        const auto at = listed.constFind(c->name);
        if (at == listed.cend()) {
            added[{namespaceCategory(c->nameSpace), c->category}].append(c);
            changes[c->name] = Change::Added;
            continue;
        }
        const QByteArray line = classLine(*c);
        if (lines[*at] != line) {
            lines[*at] = line;
            changed = true;
            if (changes.value(c->name) == Change::Unchanged)
                changes[c->name] = Change::Replaced;
        }
    }

    for (auto group = added.cbegin(); group != added.cend(); ++group) {
        changed = true;
        const QByteArray level1 = '!' + group.key().first.toUtf8();
        const QByteArray level2 = '@' + group.key().second.toUtf8();
        qsizetype first = lines.indexOf(level1);
        if (first < 0) {
            lines.append(level1);
            first = lines.size() - 1;
        }
        const qsizetype firstEnd = nextLine(lines, first + 1, "!");
        qsizetype second = -1;
        for (qsizetype i = first + 1; i < firstEnd && second < 0; ++i) {
            if (lines[i] == level2)
                second = i;
        }
        if (second < 0) {
            lines.insert(firstEnd, level2);
            second = firstEnd;
        }
        const qsizetype secondEnd = nextLine(lines, second + 1, "!@");

        QList<const CatalogueClass *> fresh = group.value();
        std::sort(fresh.begin(), fresh.end(), [](const CatalogueClass *a, const CatalogueClass *b) {
            return lessByName(a->name, b->name);
        });
        QList<QByteArray> merged;
        qsizetype next = 0;
        for (qsizetype i = second + 1; i < secondEnd; ++i) {
            if (lines[i].startsWith('#')) {
                const QString name = classNameOf(lines[i]);
                while (next < fresh.size() && lessByName(fresh[next]->name, name))
                    merged.append(classLine(*fresh[next++]));
            }
            merged.append(lines[i]);
        }
        while (next < fresh.size())
            merged.append(classLine(*fresh[next++]));
        lines = lines.mid(0, second + 1) + merged + lines.mid(secondEnd);
    }
    if (!changed)
        return old;
    QByteArray out;
    for (const QByteArray &line : std::as_const(lines))
        appendLine(out, line, file.end);
    return out;
}

} // namespace

QString namespaceCategory(const QString &nameSpace)
{
    return QStringLiteral("Namespace ") + nameSpace;
}

QString escapeDescription(QStringView text)
{
    QString out;
    out.reserve(text.size() + 16);
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (i == 0) {
            // The reader takes the first character as it stands.
            out.append(c);
        } else if (c == u'\\') {
            out.append(QLatin1String("\\\\"));
        } else if (c == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n') {
            out.append(QLatin1String("\\n"));
            ++i;
        } else if (c == u'\n') {
            out.append(QLatin1String("\\n"));
        } else {
            out.append(c);
        }
    }
    return out;
}

QByteArray fieldLine(const FieldRecord &field)
{
    QByteArray line = field.type.toUtf8() + ' ' + field.name.toUtf8() + ';';
    bool first = true;
    for (const QString *qualifier : {&field.valueMap, &field.units, &field.meanings}) {
        if (qualifier->isEmpty())
            continue;
        if (!first)
            line += ' ';
        line += qualifier->toUtf8();
        first = false;
    }
    return line;
}

bool CatalogueFolder::load(const QString &directory, QString &error)
{
    m_directory = directory;
    m_original.clear();
    const QFileInfo folder(directory);
    if (folder.exists() && !folder.isDir()) {
        error = QStringLiteral("%1 is not a folder").arg(directory);
        return false;
    }
    for (const QString &name : allFiles()) {
        const QString path = QDir(directory).filePath(name);
        const QFileInfo info(path);
        if (!info.exists()) {
            m_original.insert(name, {});
            continue;
        }
        if (!info.isFile()) {
            error = QStringLiteral("%1 is not a regular file").arg(path);
            return false;
        }
        if (info.size() > MaxFileSize) {
            error = QStringLiteral("%1 is larger than %2 MB")
                        .arg(path, QString::number(MaxFileSize / (1024 * 1024)));
            return false;
        }
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            error = QStringLiteral("%1: %2").arg(path, file.errorString());
            return false;
        }
        m_original.insert(name, file.read(std::min(file.size(), MaxFileSize)));
    }
    m_current = m_original;
    return true;
}

std::optional<ClassFields> CatalogueFolder::findClass(const QString &className) const
{
    QByteArray bytes = m_current.value(FieldFileFor(className));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    ClassFields fields = readClassFields(buffer, className);
    return fields.found ? std::optional<ClassFields>(std::move(fields)) : std::nullopt;
}

CatalogueFolder::Counts CatalogueFolder::merge(const QList<CatalogueClass> &classes)
{
    QList<const CatalogueClass *> sorted;
    for (const CatalogueClass &c : classes)
        sorted.append(&c);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const CatalogueClass *a, const CatalogueClass *b) {
                         return lessByName(a->name, b->name);
                     });

    QHash<QString, Change> changes;
    for (const QString &name : fieldFiles()) {
        QList<const CatalogueClass *> mine;
        for (const CatalogueClass *c : std::as_const(sorted)) {
            if (FieldFileFor(c->name) == name)
                mine.append(c);
        }
        if (!mine.isEmpty())
            m_current[name] = mergeFieldFile(m_current.value(name), mine, changes);
    }
    m_current[classList()] = mergeClassList(m_current.value(classList()), sorted, changes);

    Counts counts;
    for (const Change change : std::as_const(changes)) {
        ++(change == Change::Added      ? counts.added
           : change == Change::Replaced ? counts.replaced
                                        : counts.unchanged);
    }
    return counts;
}

bool CatalogueFolder::save(QStringList &written, QString &error) const
{
    // A catalogue needs all four files, even empty ones: the editor reports a missing one.
    QStringList changed;
    for (const QString &name : allFiles()) {
        if (m_current.value(name) != m_original.value(name)
            || !QFileInfo::exists(QDir(m_directory).filePath(name)))
            changed << name;
    }
    if (changed.isEmpty())
        return true;
    const QString data = QDir(m_directory).filePath(QStringLiteral("data"));
    if (!QDir().mkpath(data)) {
        error = QStringLiteral("cannot create the folder %1").arg(data);
        return false;
    }

    std::vector<std::unique_ptr<QSaveFile>> files;
    for (const QString &name : std::as_const(changed)) {
        auto file = std::make_unique<QSaveFile>(QDir(m_directory).filePath(name));
        const QByteArray bytes = m_current.value(name);
        if (!file->open(QIODevice::WriteOnly) || file->write(bytes) != bytes.size()) {
            error = QStringLiteral("%1: %2").arg(file->fileName(), file->errorString());
            return false; // the temporary files go with their QSaveFile; nothing was renamed
        }
        files.push_back(std::move(file));
    }
    for (const auto &file : files) {
        if (!file->commit()) {
            error = QStringLiteral("%1: %2").arg(file->fileName(), file->errorString());
            return false;
        }
        written << file->fileName();
    }
    return true;
}

} // namespace qarvo::catalogue
