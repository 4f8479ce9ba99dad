#pragma once

// One fuzz input run through every entry of the catalogue reader. Shared by the libFuzzer target
// and by the test that replays the corpus, so that every ordinary build checks the corpus too.
//
// The input is taken as a field file and as a class list; its first line also names the class
// that is looked up, so the fuzzer can reach the body of a block.

#include "conditions/catalogue.h"

#include <QBuffer>
#include <QByteArray>

#include <cstddef>
#include <cstdint>

namespace qarvo::fuzz {

inline void runCatalogueInput(const std::uint8_t *data, std::size_t size)
{
    using namespace qarvo::catalogue;
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));

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
}

} // namespace qarvo::fuzz
