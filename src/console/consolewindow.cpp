#include "console/consolewindow.h"

#include "conditions/conditioncheck.h"
#include "console/rulecheck.h"
#include "console/rulecheckdialog.h"
#include "console/historydialog.h"
#include "console/transferactions.h"
#include "console/rulewatch.h"
#include "console/usagedialog.h"
#include "console/usagepanel.h"
#include "control/qarvoctrl.h"
#include "control/sheets.h"
#include "dataservice/calls.h"
#include "resources/images.h"
#include "resources/ui.h"
#include "rulestore/sqlrulestore.h"

#include <QAbstractItemView>
#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QEvent>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QTimer>
#include <QToolBar>
#include <QTreeWidget>

namespace qarvo::console {

namespace {
constexpr int ViewRole = Qt::UserRole + 1;
// Long enough to read what happened; the view's name comes back afterwards.
constexpr int StatusTimeout = 15000;

// The title has little room: the file or the database, never the whole location.
QString briefName(const StoreLocation &location)
{
    if (location.kind == StoreLocation::Kind::PostgreSQL)
        return location.database;
    return QFileInfo(location.path).fileName();
}

// Names by id of the stored rules of one category, read from the store itself: the console
// compares them around a wizard without asking the control anything.
QHash<QString, QString> storedRules(DataService *store, qint16 category)
{
    QHash<QString, QString> names;
    Reply reply = category == category::NAQC ? calls::GetRQCRule(store) : calls::GetWMIRules(store);
    if (reply.failed())
        return names;
    guardAction([&] {
        forEachRow(reply, [&](RowReader &row) {
            names.insert(row.text(QStringLiteral("rule_id")), row.text(QStringLiteral("rule_name")));
        });
    });
    return names;
}
} // namespace

ConsoleWindow::ConsoleWindow(SqlRuleStore *store, qint16 view, DataService *service,
                             QWidget *parent)
    : QMainWindow(parent), m_store(store),
      m_watch(std::make_unique<RuleWatch>(store, service ? service : store))
{
    m_watch->onChange = [this](const RuleChange &change) { ruleChanged(change); };
    setObjectName(QStringLiteral("consoleWindow"));
    // Ends with the application's display name, which some platforms would otherwise append.
    const QString readOnly = store->isReadOnly() ? QStringLiteral(" (read-only)") : QString();
    setWindowTitle(QStringLiteral("%1%2 \u2014 qarvo console").arg(briefName(store->location()), readOnly));
    setWindowIcon(images::icon(images::WmiRule));

    createScopeTree();

    // The control positions its inner frame from its own position rectangle, so it sits at the
    // origin of a plain container that does nothing but hold it.
    m_host = new QWidget;
    m_host->setObjectName(QStringLiteral("controlHost"));
    m_host->installEventFilter(this);

    auto *splitter = new QSplitter(Qt::Horizontal);
    splitter->setObjectName(QStringLiteral("consoleSplitter"));
    splitter->addWidget(m_scope);
    splitter->addWidget(m_host);
    splitter->setStretchFactor(0, 0);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({190, 810});
    splitter->setChildrenCollapsible(false);
    setCentralWidget(splitter);

    createActions();
    createEditMenu();

    m_viewLabel = new QLabel;
    m_viewLabel->setObjectName(QStringLiteral("viewLabel"));
    statusBar()->addWidget(m_viewLabel, 1);
    auto *databaseLabel =
        new QLabel(QStringLiteral("Rule store: %1%2").arg(store->location().displayText(), readOnly));
    databaseLabel->setObjectName(QStringLiteral("databaseLabel"));
    if (store->isReadOnly())
        databaseLabel->setToolTip(QStringLiteral("This user may look at the rules of this store, not change them."));
    statusBar()->addPermanentWidget(databaseLabel);

    resize(1000, 680);
    showView(view == category::NAQC ? category::NAQC : category::WMI);
}

ConsoleWindow::~ConsoleWindow() = default;

void ConsoleWindow::createScopeTree()
{
    m_scope = new QTreeWidget;
    m_scope->setObjectName(QStringLiteral("scopeTree"));
    m_scope->setAccessibleName(QStringLiteral("Rule views"));
    m_scope->setHeaderHidden(true);
    m_scope->setRootIsDecorated(true);
    m_scope->setMinimumWidth(150);
    m_scope->setToolTip(QStringLiteral("Choose which rules to manage"));

    auto *root = new QTreeWidgetItem(m_scope, {QStringLiteral("Health Rules")});
    root->setIcon(0, images::icon(images::FolderOpen));
    root->setToolTip(0, m_store->location().displayText());
    root->setFlags(Qt::ItemIsEnabled);
    m_naqcItem = new QTreeWidgetItem(root, {QStringLiteral("NAQC Rules")});
    m_naqcItem->setIcon(0, images::icon(images::NaqcRule));
    m_naqcItem->setData(0, ViewRole, int(category::NAQC));
    m_naqcItem->setToolTip(0, QStringLiteral("Rules checked by Network Access Quarantine Control"));
    m_wmiItem = new QTreeWidgetItem(root, {QStringLiteral("WMI Rules")});
    m_wmiItem->setIcon(0, images::icon(images::WmiRule));
    m_wmiItem->setData(0, ViewRole, int(category::WMI));
    m_wmiItem->setToolTip(0, QStringLiteral("WMI and WQL rules checked on the client"));
    root->setExpanded(true);

    connect(m_scope, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem *item) {
        if (item && item->data(0, ViewRole).isValid())
            showView(qint16(item->data(0, ViewRole).toInt()));
    });
}

void ConsoleWindow::createActions()
{
    auto make = [this](const QString &text, const QString &name, const QKeySequence &key,
                       const QString &tip, const QIcon &icon = {}) {
        auto *a = new QAction(icon, text, this);
        a->setObjectName(name);
        a->setShortcut(key);
        a->setToolTip(QStringLiteral("%1 (%2)").arg(tip, key.toString(QKeySequence::NativeText)));
        a->setStatusTip(tip);
        return a;
    };

    QAction *newWmi = make(QStringLiteral("New &WMI Rule…"), QStringLiteral("actionNewWMIRule"),
                           QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_W),
                           QStringLiteral("Create a rule from conditions on WMI classes"),
                           images::icon(images::WmiRule));
    QAction *newWql = make(QStringLiteral("New W&QL Rule…"), QStringLiteral("actionNewWQLRule"),
                           QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Q),
                           QStringLiteral("Create a rule from a WQL query and a test on its result"),
                           images::icon(images::WmiRule));
    QAction *newNaqc = make(QStringLiteral("New &NAQC Rule…"), QStringLiteral("actionNewNAQCRule"),
                            QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N),
                            QStringLiteral("Create a rule from a Connection Manager profile's scripts"),
                            images::icon(images::NaqcRule));
    QAction *reference = make(QStringLiteral("Add Rule &Reference…"),
                              QStringLiteral("actionAddRuleReference"),
                              QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R),
                              QStringLiteral("Record that one rule uses another"));
    QAction *check = make(QStringLiteral("C&heck Rules…"), QStringLiteral("actionCheckRules"),
                          QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_K),
                          QStringLiteral("List the WMI and WQL rules whose query or class has a problem"));
    QAction *history = make(QStringLiteral("Rule &History\u2026"), QStringLiteral("actionRuleHistory"),
                            QKeySequence(Qt::CTRL | Qt::Key_H),
                            QStringLiteral("Look at earlier versions of rules and bring one back"));
    QAction *refresh = make(QStringLiteral("&Refresh"), QStringLiteral("actionRefresh"),
                            QKeySequence(QKeySequence::Refresh),
                            QStringLiteral("Load the rule list again from the rule store"),
                            style()->standardIcon(QStyle::SP_BrowserReload));
    m_naqcView = make(QStringLiteral("&NAQC Rules"), QStringLiteral("actionViewNAQC"),
                      QKeySequence(Qt::CTRL | Qt::Key_1), QStringLiteral("Show the NAQC rules"),
                      images::icon(images::NaqcRule));
    m_wmiView = make(QStringLiteral("&WMI Rules"), QStringLiteral("actionViewWMI"),
                     QKeySequence(Qt::CTRL | Qt::Key_2), QStringLiteral("Show the WMI and WQL rules"),
                     images::icon(images::WmiRule));
    QAction *quit = make(QStringLiteral("E&xit"), QStringLiteral("actionExit"),
                         QKeySequence(Qt::CTRL | Qt::Key_Q), QStringLiteral("Close the console"));
    QAction *exportAll = make(QStringLiteral("&Export Rules…"), QStringLiteral("actionExportRules"),
                              QKeySequence(Qt::CTRL | Qt::Key_E), QStringLiteral("Write every rule into a rule file"));
    QAction *exportOne = make(QStringLiteral("Export &Selected Rule…"), QStringLiteral("actionExportSelectedRule"),
                              QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E),
                              QStringLiteral("Write the selected rule into a rule file"));
    QAction *importFile = make(QStringLiteral("&Import Rules…"), QStringLiteral("actionImportRules"),
                               QKeySequence(Qt::CTRL | Qt::Key_I), QStringLiteral("Store the rules of a rule file"));
    QAction *usage = make(QStringLiteral("Rule &Usage…"), QStringLiteral("actionRuleUsage"),
                          QKeySequence(Qt::CTRL | Qt::Key_U),
                          QStringLiteral("Show the rules that use the selected rule and the rules it uses"));
    QAction *about = new QAction(QStringLiteral("&About qarvo console"), this);
    about->setObjectName(QStringLiteral("actionAbout"));

    m_viewGroup = new QActionGroup(this);
    for (QAction *a : {m_naqcView, m_wmiView}) {
        a->setCheckable(true);
        m_viewGroup->addAction(a);
    }

    connect(newWmi, &QAction::triggered, this, &ConsoleWindow::newWMIRule);
    connect(newWql, &QAction::triggered, this, &ConsoleWindow::newWQLRule);
    connect(newNaqc, &QAction::triggered, this, &ConsoleWindow::newNAQCRule);
    connect(reference, &QAction::triggered, this, &ConsoleWindow::addRuleReference);
    connect(check, &QAction::triggered, this, &ConsoleWindow::checkRules);
    connect(history, &QAction::triggered, this, &ConsoleWindow::showHistory);
    connect(refresh, &QAction::triggered, this, &ConsoleWindow::refresh);
    connect(m_naqcView, &QAction::triggered, this, [this] { showView(category::NAQC); });
    connect(m_wmiView, &QAction::triggered, this, [this] { showView(category::WMI); });
    connect(quit, &QAction::triggered, this, &QWidget::close);
    connect(about, &QAction::triggered, this, &ConsoleWindow::about);
    connect(exportAll, &QAction::triggered, this, &ConsoleWindow::exportRules);
    connect(exportOne, &QAction::triggered, this, &ConsoleWindow::exportSelectedRule);
    connect(importFile, &QAction::triggered, this, &ConsoleWindow::importRules);
    connect(usage, &QAction::triggered, this, &ConsoleWindow::showUsage);

    QMenu *file = menuBar()->addMenu(QStringLiteral("&File"));
    file->addAction(exportAll);
    file->addAction(exportOne);
    file->addAction(importFile);
    file->addSeparator();
    file->addAction(quit);
    QMenu *action = menuBar()->addMenu(QStringLiteral("&Action"));
    action->addAction(newWmi);
    action->addAction(newWql);
    action->addAction(newNaqc);
    action->addSeparator();
    action->addAction(reference);
    action->addAction(usage);
    action->addAction(check);
    action->addAction(history);
    action->addSeparator();
    action->addAction(refresh);
    QMenu *view = menuBar()->addMenu(QStringLiteral("&View"));
    view->addAction(m_naqcView);
    view->addAction(m_wmiView);
    QMenu *help = menuBar()->addMenu(QStringLiteral("&Help"));
    help->addAction(about);

    QToolBar *bar = addToolBar(QStringLiteral("Actions"));
    bar->setObjectName(QStringLiteral("actionBar"));
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->addAction(newWmi);
    bar->addAction(newWql);
    bar->addAction(newNaqc);
    bar->addSeparator();
    bar->addAction(refresh);

    if (m_store->isReadOnly()) {
        for (QAction *a : {newWmi, newWql, newNaqc, reference, importFile}) {
            a->setEnabled(false);
            a->setStatusTip(QStringLiteral("The rule store is read-only"));
        }
    }
}

void ConsoleWindow::showView(qint16 view)
{
    if (m_ctrl && view == m_view)
        return;
    m_view = view;
    // Each view gets a control of its own, created, given its ViewType and shown its pane, the
    // way the host creates one per view; a control is never set up twice.
    delete m_ctrl;
    m_ctrl = new CqarvoCtrl(m_host);
    m_ctrl->setObjectName(QStringLiteral("qarvoCtrl"));
    m_ctrl->setGeometry(m_host->rect());
    m_ctrl->setViewType(view);
    m_ctrl->ShowPane(dataService(), QString::fromLatin1(Edition), 1, 0);
    m_ctrl->show();

    const bool naqc = view == category::NAQC;
    (naqc ? m_naqcView : m_wmiView)->setChecked(true);
    QTreeWidgetItem *item = naqc ? m_naqcItem : m_wmiItem;
    if (m_scope->currentItem() != item)
        m_scope->setCurrentItem(item);
    m_viewLabel->setText(naqc ? QStringLiteral("NAQC Rules") : QStringLiteral("WMI Rules"));
}

DataService *ConsoleWindow::dataService() const
{
    return m_watch.get();
}

void ConsoleWindow::afterSheet(short result, qint16 category, const QHash<QString, QString> &before)
{
    // The sheets never refresh the list; the host does, after every one of them.
    m_ctrl->RefreshList();
    if (result != SheetDone)
        return;
    if (category != m_view)
        showView(category);
    const QHash<QString, QString> after = storedRules(m_store, category);
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        if (before.contains(it.key()))
            continue;
        selectRule(it.value());
        statusBar()->showMessage(QStringLiteral("Rule '%1' created").arg(it.value()), StatusTimeout);
        return;
    }
}

void ConsoleWindow::newWMIRule()
{
    const auto before = storedRules(m_store, category::WMI);
    afterSheet(m_ctrl->ShowWMIRuleWzd(dataService()), category::WMI, before);
}

void ConsoleWindow::newWQLRule()
{
    const auto before = storedRules(m_store, category::WMI);
    afterSheet(m_ctrl->ShowWQLRuleWzd(dataService()), category::WMI, before);
}

void ConsoleWindow::newNAQCRule()
{
    const auto before = storedRules(m_store, category::NAQC);
    afterSheet(m_ctrl->ShowRQCRuleWzd(dataService()), category::NAQC, before);
}

void ConsoleWindow::createEditMenu()
{
    m_undoDelete = new QAction(QStringLiteral("&Undo Delete"), this);
    m_undoDelete->setObjectName(QStringLiteral("actionUndoDelete"));
    m_undoDelete->setShortcut(QKeySequence::Undo);
    m_undoDelete->setStatusTip(QStringLiteral("Bring back the rule deleted last from the list"));
    m_undoDelete->setEnabled(false);
    connect(m_undoDelete, &QAction::triggered, this, &ConsoleWindow::undoDelete);
    auto *edit = new QMenu(QStringLiteral("&Edit"), menuBar());
    edit->setObjectName(QStringLiteral("editMenu"));
    edit->addAction(m_undoDelete);
    // Between File and the rest, where every desktop tool keeps it.
    const QList<QAction *> menus = menuBar()->actions();
    menuBar()->insertMenu(menus.size() > 1 ? menus.at(1) : nullptr, edit);
}

void ConsoleWindow::ruleChanged(const RuleChange &change)
{
    if (change.kind == RuleChange::Kind::Deleted) {
        ++m_undoableDeletes;
        m_undoDelete->setEnabled(!m_store->isReadOnly());
        statusBar()->showMessage(QStringLiteral("Rule '%1' deleted").arg(change.oldName), StatusTimeout);
        return;
    }
    statusBar()->showMessage(change.name == change.oldName
                                 ? QStringLiteral("Rule '%1' saved").arg(change.name)
                                 : QStringLiteral("Rule '%1' renamed to '%2'").arg(change.oldName, change.name),
                             StatusTimeout);
    // The control is about to load its list again; the rule is selected once it has.
    QTimer::singleShot(0, this, [this, name = change.name] { selectRule(name); });
}

void ConsoleWindow::undoDelete()
{
    if (m_undoableDeletes == 0)
        return;
    const RestoreResult r = m_store->restoreLastDeleted();
    if (r.outcome == RestoreResult::Outcome::NameTaken) {
        ui::showMessage(this, {QStringLiteral("qarvo console"),
                               QStringLiteral("Another rule is named '%1' now, so the deleted rule was not "
                                              "brought back. Rule History can bring it back under "
                                              "another name.").arg(r.ruleName),
                               ui::MessageIcon::Information});
        return;
    }
    if (r.outcome != RestoreResult::Outcome::Restored) {
        ui::showMessage(this, {QStringLiteral("qarvo console"),
                               QStringLiteral("The deleted rule was not brought back: %1")
                                   .arg(r.message.isEmpty() ? m_store->lastError() : r.message),
                               ui::MessageIcon::Critical});
        return;
    }
    m_undoDelete->setEnabled(--m_undoableDeletes > 0);
    if (r.category != m_view)
        showView(r.category);
    else
        m_ctrl->RefreshList();
    selectRule(r.ruleName);
    statusBar()->showMessage(QStringLiteral("Rule '%1' restored").arg(r.ruleName), StatusTimeout);
}

void ConsoleWindow::selectRule(const QString &name)
{
    auto *list = m_ctrl ? m_ctrl->findChild<QAbstractItemView *>(QStringLiteral("ruleList")) : nullptr;
    if (!list || !list->model())
        return;
    const QModelIndexList hits = list->model()->match(list->model()->index(0, 0), Qt::DisplayRole, name, 1,
                                                      Qt::MatchExactly);
    if (hits.isEmpty())
        return;
    list->setCurrentIndex(hits.first());
    list->scrollTo(hits.first());
}

void ConsoleWindow::refresh()
{
    m_ctrl->RefreshList();
    statusBar()->showMessage(QStringLiteral("Rule list loaded again"), 3000);
}

void ConsoleWindow::addRuleReference()
{
    UsageDialog dialog(m_store, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    const qint32 s = m_store->addRuleUsage(dialog.userCategory(), dialog.userId(),
                                           dialog.usedCategory(), dialog.usedName());
    if (failed(s)) {
        ui::showMessage(this, {QStringLiteral("qarvo console"),
                               QStringLiteral("The reference was not stored: %1").arg(m_store->lastError()),
                               ui::MessageIcon::Critical});
        return;
    }
    m_ctrl->RefreshList();
    statusBar()->showMessage(QStringLiteral("%1 now uses %2").arg(dialog.userName(), dialog.usedName()),
                             5000);
}

void ConsoleWindow::checkRules()
{
    wql::Schema schema(catalogue::programDirectory());
    RuleCheck check;
    QString error;
    if (!checkStoredRules(m_store, schema, &check, &error)) {
        ui::showMessage(this, {QStringLiteral("qarvo console"),
                               QStringLiteral("%1 %2").arg(error, m_store->lastError()).trimmed(),
                               ui::MessageIcon::Critical});
        return;
    }
    RuleCheckDialog dialog(check, this);
    dialog.exec();
}

void ConsoleWindow::showHistory()
{
    HistoryDialog dialog(m_store, this);
    dialog.exec();
    if (dialog.changedStore())
        m_ctrl->RefreshList();
}

void ConsoleWindow::exportRules()
{
    exportRulesInteractively(this, m_store, std::nullopt);
}

void ConsoleWindow::exportSelectedRule()
{
    if (const std::optional<SelectedRule> rule = selectedRule(m_ctrl))
        exportRulesInteractively(this, m_store, rule);
    else
        statusBar()->showMessage(QStringLiteral("Select a rule to export first"), 5000);
}

void ConsoleWindow::importRules()
{
    if (importRulesInteractively(this, m_store))
        m_ctrl->RefreshList();
}

void ConsoleWindow::showUsage()
{
    const std::optional<SelectedRule> rule = selectedRule(m_ctrl);
    if (!rule) {
        statusBar()->showMessage(QStringLiteral("Select a rule to see where it is used"), 5000);
        return;
    }
    RuleUsageDialog dialog(m_store, rule->category, rule->id, this);
    dialog.exec();
}

void ConsoleWindow::about()
{
    ui::showMessage(this, {QStringLiteral("About qarvo console"),
                           QStringLiteral("qarvo console %1\n\nManages the health rules of the "
                                          "network access protection manager.\nRule store: %2")
                               .arg(QCoreApplication::applicationVersion(),
                                    m_store->location().displayText()),
                           ui::MessageIcon::Information});
}

bool ConsoleWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_host && event->type() == QEvent::Resize && m_ctrl)
        m_ctrl->setGeometry(m_host->rect());
    return QMainWindow::eventFilter(watched, event);
}

} // namespace qarvo::console
