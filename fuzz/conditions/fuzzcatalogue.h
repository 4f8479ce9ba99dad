#pragma once

// One fuzz input run through every entry of the catalogue reader. Shared by the libFuzzer target
// and by the test that replays the corpus, so that every ordinary build checks the corpus too.
//
// The input is taken as a field file and as a class list; its first line also names the class
// that is looked up, so the fuzzer can reach the body of a block. The line reader is also checked
// against a plain split of the same bytes, with block and line limits small enough for the input
// to cross them; a difference makes the run fail.

#include "conditions/catalogue.h"
#include "conditions/linereader.h"

#include <QBuffer>
#include <QByteArray>

#include <cstddef>
#include <cstdint>

namespace qarvo::fuzz {

// Lines as a text-mode reader gives them, cut to `maxLine`.
inline QList<QByteArray> referenceLines(const QByteArray &bytes, qsizetype maxLine)
{
    QList<QByteArray> lines;
    qsizetype start = 0;
    while (start < bytes.size()) {
        const qsizetype lf = bytes.indexOf('\n', start);
        if (lf < 0) {
            lines << bytes.mid(start).left(maxLine);
            break;
        }
        QByteArray line = bytes.mid(start, lf - start);
        if (line.endsWith('\r'))
            line.chop(1);
        lines << line.left(maxLine);
        start = lf + 1;
    }
    return lines;
}

inline bool lineReaderAgrees(const QByteArray &bytes, qsizetype block, qsizetype maxLine)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    catalogue::LineReader reader(buffer, block, maxLine);
    const QList<QByteArray> expected = referenceLines(bytes, maxLine);
    QByteArrayView line;
    for (const QByteArray &want : expected) {
        if (!reader.next(line) || line != want)
            return false;
    }
    return !reader.next(line);
}

// False when the line reader and the plain split disagree.
inline bool runCatalogueInput(const std::uint8_t *data, std::size_t size)
{
    using namespace qarvo::catalogue;
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const bool agrees =
        size < 2 || lineReaderAgrees(bytes, 1 + data[0] % 7, 1 + data[1] % 13);

    const qsizetype lineEnd = bytes.indexOf('\n');
    const QByteArray firstLine = bytes.left(lineEnd < 0 ? bytes.size() : lineEnd);
    const QString className = decodeLine(firstLine.constData(), firstLine.size());

    for (const QString &name : {className, QStringLiteral("Win32_Service")}) {
        QBuffer buffer;
        buffer.setData(bytes);
        buffer.open(QIODevice::ReadOnly);
        const ClassFields fields = readClassFields(buffer, name);
        for (const FieldRecord &f : fields.fields)
            (void)FieldFileFor(f.type);
    }

    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    ClassTree tree;
    readClassList(buffer, tree);
    if (!tree.nodes.isEmpty())
        (void)tree.FindNodeEntry(tree.nodes.last().text);

    const QString text = decodeLine(bytes.constData(), bytes.size());
    (void)parseFieldLine(text);
    (void)unescapeDescription(text);
    (void)descriptionMarkerLength(bytes.constData(), bytes.size());
    return agrees;
}

} // namespace qarvo::fuzz
