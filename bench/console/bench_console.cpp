// console_start_100k: the console started on a SQLite store of 100,000 rules, through its own
// start-up (the store opened, the window built, the list loaded and shown), until the rule list
// has painted; against the same store listed through the sqlite3 C API plus an empty main window
// of the same size shown and painted. console_start_changed_100k is the same start after the
// store's bytes changed since the console last found them sound.

#include "console/consoleapp.h"
#include "ratio.h"
#include "rulestore/sqlrulestore.h"
#include "storefill.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QFile>
#include <QMainWindow>
#include <QTimer>

#include <sqlite3.h>

using namespace qarvo;

namespace {

constexpr int Rules = 100000;
// Longer than any start could take; a start that never paints ends there and is reported.
constexpr int GiveUpMs = 120000;

QString storePath()
{
    return bench::scratchPath(QStringLiteral("console.sqlite"));
}

// Ends the event loop at the first paint of a widget that `painted` accepts.
class FirstPaint : public QObject
{
public:
    explicit FirstPaint(std::function<bool(QWidget *)> painted) : m_painted(std::move(painted))
    {
        qApp->installEventFilter(this);
    }
    ~FirstPaint() override { qApp->removeEventFilter(this); }
    bool seen = false;

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (!seen && event->type() == QEvent::Paint && watched->isWidgetType()
            && m_painted(static_cast<QWidget *>(watched))) {
            seen = true;
            // Once the paint is done and on screen, not in the middle of it.
            QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
        }
        return false;
    }

private:
    std::function<bool(QWidget *)> m_painted;
};

// The viewport of a rule list that holds rules.
bool isFilledRuleList(QWidget *widget)
{
    auto *list = qobject_cast<QAbstractItemView *>(widget->parentWidget());
    return list && list->objectName() == QLatin1String("ruleList") && list->viewport() == widget
           && list->model() && list->model()->rowCount() > 0;
}

void BM_ConsoleStart(benchmark::State &state)
{
    console::Options options;
    options.database = storePath();
    for (auto _ : state) {
        FirstPaint paint(isFilledRuleList);
        QTimer::singleShot(GiveUpMs, qApp, &QCoreApplication::quit);
        // run() returns once the event loop it entered has been ended by the first paint.
        if (console::run(options) != 0 || !paint.seen)
            state.SkipWithError("the console did not show the rules");
    }
}

// A start after another program changed the store: its bytes are new, so the whole damage check
// runs again, as it does on the first start after every console that wrote.
void BM_ConsoleStartAfterChange(benchmark::State &state)
{
    console::Options options;
    options.database = storePath();
    const QByteArray path = QFile::encodeName(storePath());
    int change = 0;
    for (auto _ : state) {
        state.PauseTiming();
        sqlite3 *db = nullptr;
        const QByteArray update = "UPDATE rules SET rule_comment = 'Changed " + QByteArray::number(++change)
                                  + "' WHERE rule_id = 1";
        const bool changed = sqlite3_open_v2(path.constData(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK
                             && sqlite3_exec(db, update.constData(), nullptr, nullptr, nullptr) == SQLITE_OK;
        sqlite3_close(db);
        state.ResumeTiming();
        FirstPaint paint(isFilledRuleList);
        QTimer::singleShot(GiveUpMs, qApp, &QCoreApplication::quit);
        if (!changed || console::run(options) != 0 || !paint.seen)
            state.SkipWithError("the store was not changed or the console did not show the rules");
    }
}

void BM_SQLiteAndEmptyWindow(benchmark::State &state)
{
    const QByteArray path = QFile::encodeName(storePath());
    for (auto _ : state) {
        sqlite3 *db = nullptr;
        int rows = -1;
        if (sqlite3_open_v2(path.constData(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK)
            rows = bench::listWithSqlite(db);
        sqlite3_close(db);

        QMainWindow window;
        window.resize(1000, 680);
        FirstPaint paint([&window](QWidget *w) { return w == &window; });
        QTimer::singleShot(GiveUpMs, qApp, &QCoreApplication::quit);
        window.show();
        QApplication::exec();
        if (rows != Rules || !paint.seen)
            state.SkipWithError("rules missing or window not painted");
    }
}

// A few starts are enough: each takes a good part of a second.
BENCHMARK(BM_SQLiteAndEmptyWindow)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(3);
BENCHMARK(BM_ConsoleStart)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(3);
BENCHMARK(BM_ConsoleStartAfterChange)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(3);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    console::setIdentity();
    QApplication app(argc, argv);
    // Made once and closed again: each start opens it as the console does.
    if (!bench::filledStore(storePath(), Rules))
        return 1;

    bench::RatioReporter r;
    bench::runAll(argc, argv, r, true);
    // Wall-clock time: the store reads the list on a thread of its own while the console fills it.
    bench::printRatio("console_start_100k", r.real("BM_ConsoleStart"), r.real("BM_SQLiteAndEmptyWindow"), 1.5);
    bench::printRatio("console_start_changed_100k", r.real("BM_ConsoleStartAfterChange"),
                      r.real("BM_SQLiteAndEmptyWindow"), 1.5);
    return 0;
}
