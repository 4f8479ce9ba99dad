#pragma once

// The boundary between the control and the host's data service. Hosts and rule stores compile
// against this header only: the control calls a method by name with an ordered list of typed
// values and gets back a status, an optional value and an optional row set.

#include <qarvo/dataservice/qarvo_export.h>

#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QVariant>

#include <exception>
#include <functional>
#include <memory>
#include <variant>

namespace qarvo {

// Status codes; negative means failure. These are the values the control and the reference
// store agree on, taken from the automation world the interface was first designed for.
namespace status {
inline constexpr qint32 Ok = 0;
inline constexpr qint32 NotImplemented = qint32(0x80004001);
inline constexpr qint32 NoInterface = qint32(0x80004002);
inline constexpr qint32 InvalidPointer = qint32(0x80004003);   // E_POINTER
inline constexpr qint32 Fail = qint32(0x80004005);             // E_FAIL
inline constexpr qint32 OutOfMemory = qint32(0x8007000E);      // E_OUTOFMEMORY
inline constexpr qint32 InvalidArgument = qint32(0x80070057);  // E_INVALIDARG
inline constexpr qint32 UnknownName = qint32(0x80020006);      // DISP_E_UNKNOWNNAME
inline constexpr qint32 TypeMismatch = qint32(0x80020005);     // DISP_E_TYPEMISMATCH
inline constexpr qint32 BadParamCount = qint32(0x8002000E);    // DISP_E_BADPARAMCOUNT
inline constexpr qint32 Exception = qint32(0x80020009);        // DISP_E_EXCEPTION
inline constexpr qint32 SelfRegTypeLib = qint32(0x80040200);   // SELFREG_E_TYPELIB
inline constexpr qint32 SelfRegClass = qint32(0x80040201);     // SELFREG_E_CLASS
} // namespace status

inline bool failed(qint32 s) { return s < 0; }

// The output slot through which a row-set method hands back its rows. It carries no value: its
// place in the argument list (always last) is what the service reads.
struct RowSetSlot
{
    bool operator==(const RowSetSlot &) const = default;
};

// One argument: text, a 16-bit integer, or the row-set output slot. The kind of each value is
// part of the contract, so it is kept rather than folded into a QVariant.
using Arg = std::variant<QString, qint16, RowSetSlot>;
using ArgList = QList<Arg>;

enum class ArgKind { Text, Short, Slot };
QARVO_EXPORT ArgKind kindOf(const Arg &arg);
QARVO_EXPORT QString kindName(ArgKind kind); // "text", "short", "slot"

// Raised by row-set reading only; caught at one boundary per user action (see guardAction).
class QARVO_EXPORT DataServiceError : public std::exception
{
public:
    explicit DataServiceError(qint32 status, QString detail = {});
    qint32 status() const { return m_status; }
    const QString &detail() const { return m_detail; }
    const char *what() const noexcept override;

private:
    qint32 m_status;
    QString m_detail;
    QByteArray m_what;
};

// The rows a reading method returns. Any operation may throw DataServiceError.
class QARVO_EXPORT RowSet
{
public:
    virtual ~RowSet();
    virtual bool atEnd() = 0;
    virtual void moveNext() = 0;
    virtual QVariant field(const QString &name) = 0;
    virtual void close() = 0;
};

// What a row set may offer beside field(): a text field's UTF-8 bytes, lent rather than made into
// a QString, which is most of what reading a long list costs. A reader asks for it with
// dynamic_cast and uses field() where a row set does not offer it.
class QARVO_EXPORT Utf8Fields
{
public:
    virtual ~Utf8Fields();
    // The text field `name` of the current row; the bytes stay valid until the row set is used
    // again. False when this field is not lent this way, and field() answers for it. Throws as
    // field() does.
    virtual bool fieldUtf8(const QString &name, QByteArrayView *text) = 0;
};

struct QARVO_EXPORT Reply
{
    qint32 status = status::Ok;
    QVariant value;                 // the result of the few methods that answer with a value
    std::unique_ptr<RowSet> rows;   // set by methods that fill the output slot

    bool failed() const { return qarvo::failed(status); }
    static Reply fail(qint32 s) { Reply r; r.status = s; return r; }
};

class QARVO_EXPORT DataService
{
public:
    virtual ~DataService();
    // Calls `method` with `args` in the method's own parameter order. Must not throw.
    virtual Reply call(const QString &method, const ArgList &args) = 0;
};

// Where a row-set fault that ended one of the control's actions is reported; by default a
// warning in the log. A host may install its own; an empty reporter restores the default.
using FaultReporter = std::function<void(const DataServiceError &)>;
QARVO_EXPORT void setFaultReporter(FaultReporter reporter);

// A row set held in memory: the reference store hands its query results out this way, and
// tests and benchmarks script rows with it.
class QARVO_EXPORT MemoryRowSet : public RowSet
{
public:
    MemoryRowSet() = default;
    MemoryRowSet(QStringList columns, QList<QVariantList> rows);

    void setColumns(QStringList columns);
    void appendRow(QVariantList values);
    int rowCount() const { return int(m_rows.size()); }
    bool isClosed() const { return m_closed; }

    bool atEnd() override;
    void moveNext() override;
    QVariant field(const QString &name) override;
    void close() override;

private:
    QStringList m_columns;
    QList<QVariantList> m_rows;
    qsizetype m_pos = 0;
    bool m_closed = false;
};

} // namespace qarvo
