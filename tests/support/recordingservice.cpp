#include "recordingservice.h"

#include "dataservice/calls.h"

namespace qarvo::test {

namespace {

class ScriptedRowSet : public MemoryRowSet, public Utf8Fields
{
public:
    ScriptedRowSet(const ScriptedReply &reply, std::shared_ptr<RowSetTrace> trace)
        : MemoryRowSet(reply.columns, reply.rows), m_reply(reply), m_trace(std::move(trace))
    {
    }
    ~ScriptedRowSet() override { ++m_trace->destroyed; }

    QVariant field(const QString &name) override
    {
        if (m_trace->fieldReads++ == m_reply.faultAtFieldRead)
            throw DataServiceError(m_reply.faultStatus, QStringLiteral("scripted fault"));
        return MemoryRowSet::field(name);
    }
    // Texts only, counted as field reads; other values are left to field().
    bool fieldUtf8(const QString &name, QByteArrayView *text) override
    {
        if (!m_reply.lendsUtf8 || MemoryRowSet::field(name).typeId() != QMetaType::QString)
            return false;
        m_lent = field(name).toString().toUtf8();
        *text = m_lent;
        return true;
    }
    void close() override
    {
        if (m_reply.faultOnClose)
            throw DataServiceError(m_reply.faultStatus, QStringLiteral("scripted fault on close"));
        MemoryRowSet::close();
        m_trace->closed = true;
    }

private:
    ScriptedReply m_reply;
    std::shared_ptr<RowSetTrace> m_trace;
    QByteArray m_lent;
};

} // namespace

QString argText(const Arg &arg)
{
    switch (kindOf(arg)) {
    case ArgKind::Text: return QStringLiteral("text:") + std::get<QString>(arg);
    case ArgKind::Short: return QStringLiteral("short:%1").arg(std::get<qint16>(arg));
    case ArgKind::Slot: return QStringLiteral("slot");
    }
    return {};
}

QString RecordedCall::signature() const
{
    QStringList parts;
    for (const Arg &a : args)
        parts << argText(a);
    return method + u'(' + parts.join(QStringLiteral(", ")) + u')';
}

ScriptedReply ScriptedReply::failure(qint32 s)
{
    ScriptedReply r;
    r.status = s;
    r.noRowSet = true;
    return r;
}

ScriptedReply ScriptedReply::answer(const QVariant &value)
{
    ScriptedReply r;
    r.value = value;
    return r;
}

ScriptedReply ScriptedReply::table(QStringList columns, QList<QVariantList> rows)
{
    ScriptedReply r;
    r.columns = std::move(columns);
    r.rows = std::move(rows);
    return r;
}

QStringList RecordingService::catalogue()
{
    return {QString::fromLatin1(method::GetWMIRules),
            QString::fromLatin1(method::GetRQCRule),
            QString::fromLatin1(method::GetWMIRuleInfo),
            QString::fromLatin1(method::GetRQCRuleInfo),
            QString::fromLatin1(method::GetRQCRuleScriptInfo),
            QString::fromLatin1(method::RulesUsedExRule),
            QString::fromLatin1(method::CanUseID),
            QString::fromLatin1(method::CanUseExRuleName),
            QString::fromLatin1(method::UpdateExRuleNameInRule),
            QString::fromLatin1(method::DelWMIRule),
            QString::fromLatin1(method::DelRQCRule),
            QString::fromLatin1(method::AddWMIRule),
            QString::fromLatin1(method::AddRQCScript),
            QString::fromLatin1(method::AddRQCRule)};
}

RecordingService::RecordingService() : m_known(catalogue()) {}

void RecordingService::script(const QString &method, const ScriptedReply &reply)
{
    m_standing.insert(method, reply);
}

void RecordingService::scriptOnce(const QString &method, const ScriptedReply &reply)
{
    m_once[method].enqueue(reply);
}

Reply RecordingService::call(const QString &method, const ArgList &args)
{
    ++m_lookups;
    if (!m_known.contains(method))
        return Reply::fail(status::UnknownName);

    const int index = int(m_calls.size());
    m_calls.append({method, args});

    ScriptedReply scripted;
    auto queued = m_once.find(method);
    if (queued != m_once.end() && !queued->isEmpty())
        scripted = queued->dequeue();
    else
        scripted = m_standing.value(method);
    if (m_failAt.contains(index))
        scripted = ScriptedReply::failure(m_failAt.value(index));

    Reply reply;
    reply.status = scripted.status;
    reply.value = scripted.value;
    const bool wantsRows = !args.isEmpty() && kindOf(args.last()) == ArgKind::Slot;
    if (wantsRows && !scripted.noRowSet && !failed(scripted.status)) {
        auto trace = std::make_shared<RowSetTrace>();
        m_traces.append(trace);
        reply.rows = std::make_unique<ScriptedRowSet>(scripted, trace);
    }
    return reply;
}

QStringList RecordingService::signatures() const
{
    QStringList out;
    for (const RecordedCall &c : m_calls)
        out << c.signature();
    return out;
}

QStringList RecordingService::methods() const
{
    QStringList out;
    for (const RecordedCall &c : m_calls)
        out << c.method;
    return out;
}

void RecordingService::clear()
{
    m_calls.clear();
    m_traces.clear();
    m_lookups = 0;
}

} // namespace qarvo::test
