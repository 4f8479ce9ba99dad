// A console's worth of store traffic in a process of its own, for the tests that run several at
// once or kill one half-way. It makes the control's own call sequences with the control's own
// code (id drawing, condition encoding, the NAQC store sequence) and prints one line per step.
//
//   storewriter wizard LOCATION TAG SAVES SECOND_MS   waits for a second on stdin, then from that
//                                                     second on finishes SAVES wizards, WMI and
//                                                     NAQC in turn
//   storewriter edit LOCATION w<ID>|n<ID>...          saves the rules' property sheets over and
//                                                     over until it is killed
//   storewriter probe LOCATION                        opens, lists, tries one write
//
// SECOND_MS > 0 makes the id generator's "second" that many milliseconds of the wall clock, so
// that processes started together share their seconds as real consoles do, only faster.

#include "dataservice/calls.h"
#include "dataservice/ruleid.h"
#include "naqcrule/rqcrulerecord.h"
#include "rulestore/sqlrulestore.h"
#include "wmirule/ruledata.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QThread>

#include <cstdio>

using namespace qarvo;

namespace {

void say(const QString &line)
{
    std::printf("%s\n", qUtf8Printable(line));
    std::fflush(stdout);
}

// Three conditions or script entries, each carrying `tag`, so that a reader can tell whose and
// which version every row is.
bool storeRule(SqlRuleStore &store, qint16 cat, const QString &id, const QString &name, const QString &tag)
{
    if (cat == category::WMI) {
        WMIRuleData rule;
        rule.ruleId = id;
        rule.ruleName = name;
        rule.comment = tag;
        rule.service = &store;
        for (int i = 0; i < 3; ++i)
            rule.conditions.append({i ? QStringLiteral("AND") : QStringLiteral("EQ"), QStringLiteral("Win32_Service"),
                                    QStringLiteral("State"), tag, QStringLiteral("="), QStringLiteral("root\\cimv2"),
                                    QStringLiteral("string")});
        return writeConditions(rule);
    }
    RQCRuleRecord rule{id, name, tag, tag, {}};
    for (int i = 0; i < 3; ++i)
        rule.scripts.append({tag, QStringLiteral("Connect Actions"), QString::number(i), qint16(i % 2)});
    return storeRQCRule(&store, rule);
}

int wizards(SqlRuleStore &store, const QString &tag, int saves)
{
    say(QStringLiteral("ready"));
    // Every writer finishes its first wizard in the second it is told.
    char line[32];
    if (!std::fgets(line, sizeof line, stdin))
        return 2;
    while (ruleIdClock()() < QByteArray(line).trimmed().toLongLong())
        QThread::msleep(1);
    for (int k = 0; k < saves; ++k) {
        const qint16 cat = k % 2 ? category::NAQC : category::WMI;
        RuleIdGenerator generator;
        const DrawnRuleId drawn = drawUnusedRuleId(&store, cat, generator);
        const QString name = QStringLiteral("%1 %2").arg(tag).arg(k);
        if (!drawn.accepted() || calls::CanUseExRuleName(&store, name, cat).yes
            || !storeRule(store, cat, drawn.id, name, tag)) {
            say(QStringLiteral("failed %1 %2 %3").arg(cat).arg(tag, store.lastError()));
            continue;
        }
        say(QStringLiteral("saved %1 %2 %3").arg(cat).arg(drawn.id).arg(drawn.tries));
    }
    return 0;
}

// The property sheet's save, as the control makes it: a new name, then delete and store again.
int edits(SqlRuleStore &store, const QStringList &rules)
{
    say(QStringLiteral("ready"));
    for (;;) {
        for (const QString &rule : rules) {
            const qint16 cat = rule.startsWith(u'w') ? category::WMI : category::NAQC;
            const QString id = ruleIdText(rule.mid(1).toInt());
            Reply info = cat == category::WMI ? calls::GetWMIRuleInfo(&store, id) : calls::GetRQCRuleInfo(&store, id);
            QString name;
            guardAction([&] { forEachRow(info, [&](RowReader &r) { name = r.text(QStringLiteral("rule_name")); }); });
            // Every save is the next version: "NAME #k" with k in each of its rows.
            const int k = name.section(QLatin1String(" #"), 1).toInt() + 1;
            const QString newName = QStringLiteral("%1 #%2").arg(name.section(QLatin1String(" #"), 0, 0)).arg(k);
            const auto del = cat == category::WMI ? &calls::DelWMIRule : &calls::DelRQCRule;
            if (name.isEmpty() || calls::CanUseExRuleName(&store, newName, cat).yes
                || failed(calls::UpdateExRuleNameInRule(&store, name, newName, cat))
                || failed(del(&store, id, delmode::BeforeStoreAgain)) || !storeRule(store, cat, id, newName, QString::number(k))) {
                say(QStringLiteral("failed %1 %2").arg(rule, store.lastError()));
                return 3;
            }
            say(QStringLiteral("saved %1 %2").arg(rule).arg(k));
        }
    }
}

int probe(SqlRuleStore &store)
{
    Reply list = calls::GetWMIRules(&store);
    QStringList names;
    guardAction([&] { forEachRow(list, [&](RowReader &r) { names << r.text(QStringLiteral("rule_name")); }); });
    const qint32 write = calls::DelWMIRule(&store, ruleIdText(1), delmode::FromList);
    say(QStringLiteral("read-only=%1 rules=%2 write=%3 %4")
            .arg(store.isReadOnly()).arg(names.join(u',')).arg(failed(write) ? "failed" : "ok", store.lastError()));
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.size() < 2)
        return 2;
    if (args.value(0) == QLatin1String("wizard")) {
        if (const qint64 ms = args.value(4).toLongLong(); ms > 0)
            ruleIdClock() = [ms] { return QDateTime::currentMSecsSinceEpoch() / ms; };
    }
    SqlRuleStore store;
    if (!store.open(args.at(1))) {
        say(QStringLiteral("cannot open: %1").arg(store.lastError()));
        return 1;
    }
    if (args.at(0) == QLatin1String("wizard"))
        return wizards(store, args.value(2), args.value(3).toInt());
    if (args.at(0) == QLatin1String("edit"))
        return edits(store, args.mid(2));
    return probe(store);
}
