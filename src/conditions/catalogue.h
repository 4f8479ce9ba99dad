#pragma once

// The WMI class catalogue: class.dat builds the class tree, and three field files describe the
// fields of every class. This is plain code with no widgets so that it can be tested and fuzzed
// on its own; CWMIDlg only shows what it returns.

#include <QList>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <optional>

class QIODevice;
class QWidget;

namespace qarvo::catalogue {

// A node that can be picked as a class or a category, in reading order.
struct NodeEntry
{
    QString name;
    QString description;
};

struct TreeNode
{
    QString text;
    int parent = -1; // index into ClassTree::nodes; -1 for the root
    int image = 0;
    int selectedImage = 1;
    bool expanded = false;
    bool isClass = false; // from a "#" line; only classes answer a class search
    QList<int> children;
};

// What LoadClassList builds: the nodes (the root "WMI" first) and the node entries.
class ClassTree
{
public:
    QList<TreeNode> nodes;
    QList<NodeEntry> entries;

    bool isEmpty() const { return nodes.isEmpty(); }
    void clear();
    // The first entry, in reading order, whose name equals `text` exactly.
    const NodeEntry *FindNodeEntry(QStringView text) const;

    // Building blocks of the reader, public for the benchmark and for other tree producers.
    int addNode(int parent, const QString &text, int image, int selectedImage);
};

// One field of a class, in the order the field file lists them.
struct FieldRecord
{
    QString name;        // with a trailing "[]" for array fields
    QString type;        // "<Class> Ref" for a reference field
    QString description; // unescaped, may hold line breaks
    QString valueMap;    // "ValueMap{...}" or empty
    QString units;       // "Units(...)" or empty
    // "Values{...}": what each value-map code means. Older readers skip it, as they skip any
    // qualifier they do not know; empty when the field has none.
    QString meanings = {};

    bool operator==(const FieldRecord &) const = default;
};

struct ClassFields
{
    bool found = false;      // the class block was in its file
    QString nameSpace;
    std::optional<QString> description; // from an "@" line; replaces the one from class.dat
    QList<FieldRecord> fields;
};

// The field file a class lives in, relative to the program directory ("data/win32.dat", with the
// platform's separator). Chosen by a case-sensitive prefix of the class name.
QString FieldFileFor(QStringView className);

// Reading from an open device. Never fails: malformed lines are cut by the empty-text rules.
void readClassList(QIODevice &device, ClassTree &tree);
ClassFields readClassFields(QIODevice &device, QStringView className);

// One field line and one description text (the part after the marker), as the file reader
// interprets them.
FieldRecord parseFieldLine(QStringView line);
QString unescapeDescription(QStringView text);

// The choices a "ValueMap{...}" offers: each piece between commas gives the text between its
// first two double quotes (so a choice can hold neither "," nor a quote).
QStringList valueMapChoices(QStringView valueMap);
// The text between the quotes of "Units("...")".
QString unitsText(QStringView units);
// The meanings of "Values{...}", in value-map order: quoted texts in which a backslash takes the
// next character as it stands.
QStringList valueMeanings(QStringView meanings);

// The description marker at the start of a raw line: the byte pair A6 A6 as stored, or either of
// the two wide forms it takes when an 8-bit file was widened by someone else ("¦¦" by a
// byte-to-character widening, "└" by the Korean code page). Returns the length of the marker in
// bytes, or 0 when the line has none.
int descriptionMarkerLength(const char *line, qsizetype size);

// Decodes one line of a catalogue file: UTF-8 when the bytes are valid UTF-8, otherwise one
// character per byte (the files are 8-bit text; in practice everything but the marker is ASCII).
QString decodeLine(const char *line, qsizetype size);

// ---- files --------------------------------------------------------------------------------------

// Joins the program directory and a catalogue file name the way the manager always has: the
// directory as stored, a separator, the name. Nothing is trimmed.
QString catalogueFilePath(const QString &programPath, const QString &relativeName);

// The program directory: "ProgramPath" under the manager's settings key when it is there,
// otherwise the catalogue shipped with the console (<exe dir>/../share/qarvo/catalogue) when that
// exists. Nothing when neither is available.
std::optional<QString> programDirectory();
// Where the shipped catalogue lives relative to the running executable.
QString shippedCatalogueDirectory();

// Reads class.dat. Shows "Cannot open class list file" and returns false when it cannot be
// opened; the tree is then left empty.
bool LoadClassList(const QString &programPath, ClassTree &tree,
                   QWidget *messageParent = nullptr);

// Reads the fields of one class from its field file. Shows "Cannot open field list file" and
// returns nothing when the file cannot be opened; a class missing from its file gives an empty,
// not-found result without a message.
std::optional<ClassFields> LoadClassFields(const QString &programPath,
                                           const QString &className,
                                           QWidget *messageParent = nullptr);

// Every class name of a class list ("#" lines), in reading order: what the catalogue knows,
// without building the tree.
QStringList readClassNames(QIODevice &device);

} // namespace qarvo::catalogue
