// A console's worth of store traffic in a process of its own, for the tests that need a second
// process or another user.
//
//   storewriter probe LOCATION     opens, lists, tries one write

#include "dataservice/calls.h"
#include "rulestore/sqlrulestore.h"

#include <QCoreApplication>

#include <cstdio>

using namespace qarvo;

namespace {

void say(const QString &line)
{
    std::printf("%s\n", qUtf8Printable(line));
    std::fflush(stdout);
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
    SqlRuleStore store;
    if (!store.open(args.at(1))) {
        say(QStringLiteral("cannot open: %1").arg(store.lastError()));
        return 1;
    }
    return probe(store);
}
