#pragma once

// One fuzz input run through the MOF reader, the compiler and the catalogue writer, then read
// back through the catalogue reader. Shared by the libFuzzer target and by the test that replays
// the corpus.
//
// Every file name the input includes resolves to the input itself, so includes reach the cycle
// and repeat handling. A class may derive from Existing_Base, which only the catalogue holds.
// Whatever compiles must read back exactly as compiled, and adding it twice must change nothing;
// anything else makes the run fail.

#include "conditions/cataloguewriter.h"
#include "conditions/mofcompiler.h"
#include "conditions/mofreader.h"

#include <QBuffer>

#include <algorithm>

#include <cstddef>
#include <cstdint>

namespace qarvo::fuzz {

inline catalogue::ClassFields readBack(const QByteArray &bytes, const QString &className)
{
    QByteArray copy = bytes;
    QBuffer buffer(&copy);
    buffer.open(QIODevice::ReadOnly);
    return catalogue::readClassFields(buffer, className);
}

inline bool runMofInput(const std::uint8_t *data, std::size_t size)
{
    using namespace qarvo::catalogue;
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const MofLoader loader = [&bytes](const QString &, QString &) {
        return std::optional<QByteArray>(bytes);
    };
    const MofReadResult read =
        readMof({QStringLiteral("input.mof")}, QStringLiteral("root\\cimv2"), loader);
    if (!read.ok())
        return true;

    static const QByteArray existing =
        "Existing_Base\r\nroot\\cimv2\r\n@Base.\r\n{\r\n"
        "uint16 Kind;ValueMap{\"1\", \"2\"} Values{\"One\", \"T\\\\wo\"}\r\n"
        "\xA6\xA6Kind.\r\nstring Names[];Units(\"x\")\r\n\xA6\xA6\r\n}\r\n";
    const MofCompileResult compiled = compileMofClasses(read.classes, {}, [](const QString &name) {
        ClassFields f = readBack(existing, name);
        return f.found ? std::optional<ClassFields>(f) : std::nullopt;
    });
    if (!compiled.ok())
        return true;

    CatalogueFolder folder;
    folder.merge(compiled.classes);
    QByteArray list = folder.contents(QStringLiteral("class.dat"));
    QBuffer listBuffer(&list);
    listBuffer.open(QIODevice::ReadOnly);
    ClassTree tree;
    readClassList(listBuffer, tree);
    for (const CatalogueClass &c : compiled.classes) {
        const bool listed =
            std::any_of(tree.nodes.cbegin(), tree.nodes.cend(),
                        [&c](const TreeNode &n) { return n.isClass && n.text == c.name; });
        const ClassFields back = readBack(folder.contents(FieldFileFor(c.name)), c.name);
        if (!listed || !back.found || back.nameSpace != c.nameSpace
            || back.description != std::optional<QString>(c.description) || back.fields != c.fields)
            return false;
    }

    QMap<QString, QByteArray> before;
    for (const QString &name : {QStringLiteral("class.dat"), FieldFileFor(u"Win32_"),
                                FieldFileFor(u"CIM_"), FieldFileFor(u"")})
        before.insert(name, folder.contents(name));
    const CatalogueFolder::Counts again = folder.merge(compiled.classes);
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (folder.contents(it.key()) != it.value())
            return false;
    }
    return again.added == 0 && again.replaced == 0;
}

} // namespace qarvo::fuzz
