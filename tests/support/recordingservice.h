#pragma once

// A data service for tests: scripts replies per method and records every call with the kind of
// every argument, so that tests can check exact call sequences.

#include "dataservice/dataservice.h"

#include <QHash>
#include <QQueue>
#include <QStringList>

#include <memory>

namespace qarvo::test {

struct RecordedCall
{
    QString method;
    ArgList args;
    // "Method(text:000000012, short:6, slot)": the whole call in one comparable line.
    QString signature() const;
};

QString argText(const Arg &arg);

struct ScriptedReply
{
    qint32 status = status::Ok;
    QVariant value;
    // Rows for methods with an output slot. Without `noRowSet` an empty row set is handed out.
    QStringList columns;
    QList<QVariantList> rows;
    bool noRowSet = false;
    int faultAtFieldRead = -1; // the n-th field read (from 0) throws
    bool faultOnClose = false;
    qint32 faultStatus = status::Fail;
    bool lendsUtf8 = false; // text fields are lent as UTF-8 (Utf8Fields) too

    static ScriptedReply failure(qint32 s = status::Fail);
    static ScriptedReply answer(const QVariant &value);
    static ScriptedReply table(QStringList columns, QList<QVariantList> rows);
};

// What happened to a row set handed out by the service.
struct RowSetTrace
{
    bool closed = false;
    int fieldReads = 0;
    int destroyed = 0;
};

class RecordingService : public DataService
{
public:
    RecordingService();

    // Names that the service answers; any other name fails before anything is recorded as sent.
    void setKnownMethods(const QStringList &methods) { m_known = methods; }
    void forgetMethod(const QString &method) { m_known.removeAll(method); }

    // The reply every call of `method` gets (until replaced).
    void script(const QString &method, const ScriptedReply &reply);
    // A reply for the next call of `method` only; queued replies are used before the standing one.
    void scriptOnce(const QString &method, const ScriptedReply &reply);
    // Makes the n-th sent call (from 0, counting all methods) fail with `status`.
    void failCall(int index, qint32 s = status::Fail) { m_failAt.insert(index, s); }

    Reply call(const QString &method, const ArgList &args) override;

    const QList<RecordedCall> &calls() const { return m_calls; }
    QStringList signatures() const;
    QStringList methods() const;
    int lookups() const { return m_lookups; }
    const QList<std::shared_ptr<RowSetTrace>> &rowSets() const { return m_traces; }
    void clear();

    static QStringList catalogue();

private:
    QStringList m_known;
    QHash<QString, ScriptedReply> m_standing;
    QHash<QString, QQueue<ScriptedReply>> m_once;
    QHash<int, qint32> m_failAt;
    QList<RecordedCall> m_calls;
    QList<std::shared_ptr<RowSetTrace>> m_traces;
    int m_lookups = 0;
};

} // namespace qarvo::test
