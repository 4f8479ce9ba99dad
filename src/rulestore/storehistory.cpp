#include "rulestore/storehistory.h"

#include "dataservice/calls.h"
#include "dataservice/recordsizes.h"
#include "rulestore/storedb.h"
#include "rulestore/storeerror.h"
#include "rulestore/storereservations.h"
#include "rulestore/storerules.h"

#include <QRandomGenerator>

#include <limits>

namespace qarvo::store {

namespace {

constexpr qint64 DayMs = 24 * 3600 * 1000;

struct EventCode
{
    HistoryEvent event;
    const char *code;
};
const EventCode eventCodes[] = {
    {HistoryEvent::Deleted, "deleted"},
    {HistoryEvent::StoredAgain, "stored-again"},
    {HistoryEvent::Renamed, "renamed"},
    {HistoryEvent::RestoredOver, "restored-over"},
};

const char *codeOf(HistoryEvent event)
{
    for (const EventCode &e : eventCodes) {
        if (e.event == event)
            return e.code;
    }
    return "deleted";
}

HistoryEvent eventOf(const QString &code)
{
    for (const EventCode &e : eventCodes) {
        if (code == QLatin1String(e.code))
            return e.event;
    }
    return HistoryEvent::Deleted;
}

// A free id for a version whose own id is held: where the control itself would draw one, or
// above every id in use when that range is full.
int drawFreeId(StoreDb &db, qint16 cat, qint64 now)
{
    const auto free = [&](int id) { return !idInUse(db, cat, id) && idHolder(db, cat, id, now) == Holder::Nobody; };
    for (int attempt = 0; attempt < 64; ++attempt) {
        const int id = QRandomGenerator::global()->bounded(32768);
        if (free(id))
            return id;
    }
    int id = db.value("SELECT MAX(rule_id) FROM rules WHERE category = ?", {int(cat)}).toInt();
    while (!free(++id)) {
    }
    return id;
}

RestoreResult answer(RestoreResult::Outcome outcome, const RuleSnapshot &rule, const QString &message)
{
    RestoreResult r;
    r.outcome = outcome;
    r.category = rule.category;
    r.ruleId = rule.id;
    r.ruleName = rule.name;
    r.message = message;
    return r;
}

} // namespace

} // namespace qarvo::store

namespace qarvo {

QString historyEventText(const HistoryEntry &entry)
{
    switch (entry.event) {
    case HistoryEvent::Deleted:
        return QStringLiteral("deleted");
    case HistoryEvent::StoredAgain:
        return QStringLiteral("deleted to be stored again");
    case HistoryEvent::Renamed:
        return QStringLiteral("renamed to \"%1\"").arg(entry.detail);
    case HistoryEvent::RestoredOver:
        return QStringLiteral("replaced by a restored version");
    }
    return {};
}

} // namespace qarvo

namespace qarvo::store {

void recordVersion(StoreDb &db, const RuleSnapshot &rule, HistoryEvent event, const QString &detail, qint64 now)
{
    db.exec("INSERT INTO rule_history (happened_at, category, rule_id, rule_name, event, detail, content)"
            " VALUES (?, ?, ?, ?, ?, ?, ?)",
            {now, int(rule.category), rule.id, rule.name, QLatin1String(codeOf(event)), detail,
             QString::fromUtf8(toJson(rule))});
}

QList<HistoryEntry> listHistory(StoreDb &db)
{
    QSqlQuery q = db.exec("SELECT version_id, happened_at, category, rule_id, rule_name, event, detail"
                          " FROM rule_history ORDER BY version_id DESC");
    QList<HistoryEntry> list;
    while (q.next())
        list.append({q.value(0).toLongLong(), q.value(1).toLongLong(), qint16(q.value(2).toInt()), q.value(3).toInt(),
                     q.value(4).toString(), eventOf(q.value(5).toString()), q.value(6).toString()});
    q.finish();
    return list;
}

RuleSnapshot versionContent(StoreDb &db, qint64 version)
{
    const QVariant content = db.value("SELECT content FROM rule_history WHERE version_id = ?", {version});
    if (!content.isValid())
        refuse(status::InvalidArgument, QStringLiteral("the history holds no version %1").arg(version));
    QString error;
    const std::optional<RuleSnapshot> rule = ruleFromJson(content.toString().toUtf8(), &error);
    if (!rule)
        refuse(status::Fail, QStringLiteral("version %1 of the history cannot be read: %2").arg(version).arg(error));
    return *rule;
}

qint64 lastDeletedVersion(StoreDb &db)
{
    return db.value("SELECT MAX(version_id) FROM rule_history WHERE event = 'deleted'").toLongLong();
}

RestoreResult restoreVersion(StoreDb &db, qint64 version, RestoreId idChoice, const QString &newName)
{
    using Outcome = RestoreResult::Outcome;
    const RuleSnapshot rule = versionContent(db, version);
    if (!rule.hasRule)
        return answer(Outcome::Failed, rule,
                      QStringLiteral("This version holds only the rows of a save that never stored its rule; "
                                     "there is no rule to bring back."));
    if (rule.category != category::NAQC && rule.category != category::WMI)
        refuse(status::Fail, QStringLiteral("version %1 is of an unknown rule category %2").arg(version).arg(rule.category));
    const ArgList nameArg{newName.isEmpty() ? rule.name : newName};
    checkStorable(nameArg);
    const QString name = ruleNameArg(nameArg, 0);
    const qint16 cat = rule.category;
    const qint64 now = db.now();

    int id = rule.id;
    const RuleSnapshot holder = readRule(db, cat, id);
    const bool reserved = idHolder(db, cat, id, now) == Holder::Other;
    const bool held = !holder.isEmpty() || reserved;
    if (held && idChoice == RestoreId::OldOnly) {
        RestoreResult r = answer(Outcome::IdHeld, rule,
                                 holder.hasRule ? QStringLiteral("Rule id %1 belongs to the rule \"%2\" now.")
                                                      .arg(ruleIdText(id), holder.name)
                                                : QStringLiteral("Rule id %1 holds the rows of a save that did not "
                                                                 "finish.").arg(ruleIdText(id)));
        r.holder = holder.name;
        return r;
    }
    if (held && idChoice == RestoreId::ReplaceHolder && reserved)
        return answer(Outcome::Failed, rule,
                      QStringLiteral("Another console is saving rule id %1 right now; try again once it is done.")
                          .arg(ruleIdText(id)));
    const bool replacing = held && idChoice == RestoreId::ReplaceHolder;
    if (held && !replacing)
        id = drawFreeId(db, cat, now);

    const QVariant nameOwner = db.value("SELECT rule_id FROM rules WHERE category = ? AND rule_name = ?",
                                        {int(cat), name});
    if ((nameOwner.isValid() && !(replacing && nameOwner.toInt() == id))
        || nameHolder(db, cat, name, now) == Holder::Other) {
        RestoreResult r = answer(Outcome::NameTaken, rule,
                                 QStringLiteral("There is already a rule named \"%1\".").arg(name));
        r.ruleName = name;
        return r;
    }
    if (replacing) {
        recordVersion(db, holder, HistoryEvent::RestoredOver, QString(), now);
        // Others' references to the holder stay when the restored rule takes its name again.
        removeRule(db, cat, id, holder.name, holder.name == name);
        db.exec("DELETE FROM rule_usage WHERE user_category = ? AND user_id = ?", {int(cat), id});
    }
    writeRule(db, rule, {id, name});
    RestoreResult r = answer(Outcome::Restored, rule, QString());
    r.ruleId = id;
    r.ruleName = name;
    return r;
}

int purgeHistory(StoreDb &db, int days)
{
    const qint64 before = days > 0 ? db.now() - days * DayMs : std::numeric_limits<qint64>::max();
    QSqlQuery q = db.exec("DELETE FROM rule_history WHERE happened_at < ?", {before});
    return q.numRowsAffected();
}

int retentionDays(StoreDb &db)
{
    return db.value("SELECT value FROM store_settings WHERE name = 'history_days'").toInt();
}

void setRetentionDays(StoreDb &db, int days)
{
    db.exec("DELETE FROM store_settings WHERE name = 'history_days'");
    if (days > 0)
        db.exec("INSERT INTO store_settings (name, value) VALUES ('history_days', ?)", {QString::number(days)});
}

} // namespace qarvo::store
