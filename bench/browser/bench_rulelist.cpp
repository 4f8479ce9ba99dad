// The rule list at both ends of its range, each against a baseline measured in the same run:
//  - rulelist_100k: 100,000 WMI/WQL rules loaded into the shown list, laid out and painted,
//    against a bare loop that reads the same fields from the same rows;
//  - long_texts: ShowPane of 20 rules whose names and comments are a million characters long,
//    against ShowPane of 20 rules with short texts.

#include "browser/paneup.h"
#include "browser/rulelistmodel.h"
#include "browser/splitdlg.h"
#include "control/qarvoctrl.h"
#include "dataservice/calls.h"
#include "ratio.h"

#include <QApplication>
#include <QEvent>

#include <memory>

using namespace qarvo;

namespace {

constexpr int RuleCount = 100000;
constexpr int LongTextRules = 20;
constexpr qsizetype LongTextSize = 1024 * 1024;

const QStringList &columns()
{
    static const QStringList c = {"rule_wql", "rule_name", "rule_comment", "rule_id"};
    return c;
}

const QList<QVariantList> &manyRules()
{
    static const QList<QVariantList> rows = [] {
        QList<QVariantList> out;
        out.reserve(RuleCount);
        for (int i = 0; i < RuleCount; ++i)
            out.append({i % 4 == 0 ? 1 : 0, QStringLiteral("Health rule %1").arg(i),
                        QStringLiteral("Checks workstation group %1 before it joins").arg(i % 97),
                        ruleIdText(i)});
        return out;
    }();
    return rows;
}

QList<QVariantList> twentyRules(qsizetype textSize)
{
    QList<QVariantList> out;
    for (int i = 0; i < LongTextRules; ++i) {
        const QString name = QStringLiteral("Rule %1 ").arg(i);
        const QString comment = QStringLiteral("Comment %1 ").arg(i);
        out.append({i % 2, name.leftJustified(textSize, u'n'), comment.leftJustified(textSize, u'c'),
                    ruleIdText(i)});
    }
    return out;
}

const QList<QVariantList> &longRules()
{
    static const QList<QVariantList> rows = twentyRules(LongTextSize);
    return rows;
}

const QList<QVariantList> &shortRules()
{
    static const QList<QVariantList> rows = twentyRules(24);
    return rows;
}

// Serves one rule list from memory, the way a store hands out a query result.
class MemoryService : public DataService
{
public:
    explicit MemoryService(const QList<QVariantList> &rows) : m_rows(rows) {}
    Reply call(const QString &method, const ArgList &) override
    {
        Reply reply;
        if (method == QLatin1String(method::GetWMIRules))
            reply.rows = std::make_unique<MemoryRowSet>(columns(), m_rows);
        else
            reply.status = status::UnknownName;
        return reply;
    }

private:
    const QList<QVariantList> &m_rows;
};

// Counts the paints of the list, so that a run that painted nothing is not taken for a fast one.
class PaintCounter : public QObject
{
public:
    int paints = 0;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            ++paints;
        return false;
    }
};

struct Control
{
    MemoryService service;
    CqarvoCtrl ctrl;
    PaintCounter counter;

    explicit Control(const QList<QVariantList> &rows) : service(rows)
    {
        ctrl.resize(900, 700);
        ctrl.setViewType(category::WMI);
        ctrl.show();
        QApplication::processEvents();
        list()->viewport()->installEventFilter(&counter);
    }
    CPaneUP *pane() const { return ctrl.splitDialog()->paneUp(); }
    RuleListView *list() const { return pane()->ruleList(); }
    void showPane() { ctrl.ShowPane(&service, QString(), 1, 0); }
};

void BM_BareRead(benchmark::State &state)
{
    const QString wqlField = QStringLiteral("rule_wql");
    const QString nameField = QStringLiteral("rule_name");
    const QString commentField = QStringLiteral("rule_comment");
    const QString idField = QStringLiteral("rule_id");
    for (auto _ : state) {
        MemoryRowSet rows(columns(), manyRules());
        qint64 sum = 0;
        while (!rows.atEnd()) {
            const qint32 wql = fieldInt(rows.field(wqlField));
            const QString name = fieldText(rows.field(nameField));
            const QString comment = fieldText(rows.field(commentField));
            const int id = fieldInt(rows.field(idField));
            benchmark::DoNotOptimize(name.constData());
            benchmark::DoNotOptimize(comment.constData());
            sum += wql + id;
            rows.moveNext();
        }
        rows.close();
        benchmark::DoNotOptimize(sum);
    }
}

// The whole load: the call by name, the list cleared, the rows read and converted, the model
// filled, and the shown view laid out and painted.
void BM_PaneLoad(benchmark::State &state)
{
    Control c(manyRules());
    c.showPane();
    QApplication::processEvents();
    for (auto _ : state) {
        const int paints = c.counter.paints;
        c.pane()->loadList(category::WMI);
        QApplication::processEvents();
        if (c.pane()->model()->rowCount() != RuleCount || c.counter.paints == paints)
            state.SkipWithError("rules not loaded or not painted");
    }
}

// A fresh control each time: a second ShowPane would add its columns to the first one's.
void showPaneOf(benchmark::State &state, const QList<QVariantList> &rows)
{
    for (auto _ : state) {
        state.PauseTiming();
        auto c = std::make_unique<Control>(rows);
        state.ResumeTiming();
        c->showPane();
        QApplication::processEvents();
        if (c->pane()->model()->rowCount() != LongTextRules || c->counter.paints == 0)
            state.SkipWithError("rules not loaded or not painted");
        state.PauseTiming();
        c.reset();
        state.ResumeTiming();
    }
}

void BM_ShowPaneShortTexts(benchmark::State &state) { showPaneOf(state, shortRules()); }
void BM_ShowPaneLongTexts(benchmark::State &state) { showPaneOf(state, longRules()); }

// Five repetitions each: the machine may be shared, and the median steadies the ratio.
BENCHMARK(BM_BareRead)->Unit(benchmark::kMillisecond)->Repetitions(5);
BENCHMARK(BM_PaneLoad)->Unit(benchmark::kMillisecond)->Repetitions(5);
BENCHMARK(BM_ShowPaneShortTexts)->Unit(benchmark::kMillisecond)->Repetitions(5);
BENCHMARK(BM_ShowPaneLongTexts)->Unit(benchmark::kMillisecond)->Repetitions(5);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // Built once, outside every measurement.
    (void)manyRules();
    (void)longRules();
    (void)shortRules();

    bench::RatioReporter r;
    bench::runAll(argc, argv, r);
    bench::printRatio("rulelist_100k", r.cpu("BM_PaneLoad"), r.cpu("BM_BareRead"), 1.2);
    bench::printRatio("long_texts", r.cpu("BM_ShowPaneLongTexts"), r.cpu("BM_ShowPaneShortTexts"), 2.0);
    return 0;
}
