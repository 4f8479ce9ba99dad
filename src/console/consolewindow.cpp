#include "console/consolewindow.h"

#include "conditions/conditioncheck.h"
#include "console/rulecheck.h"
#include "console/rulecheckdialog.h"
#include "console/historydialog.h"
#include "console/usagedialog.h"
#include "control/qarvoctrl.h"
#include "control/sheets.h"
#include "dataservice/calls.h"
#include "resources/images.h"
#include "resources/ui.h"
#include "rulestore/sqlrulestore.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QEvent>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QTreeWidget>

namespace qarvo::console {

namespace {
constexpr int ViewRole = Qt::UserRole + 1;
}

ConsoleWindow::ConsoleWindow(SqlRuleStore *store, qint16 view, DataService *service,
                             QWidget *parent)
    : QMainWindow(parent), m_store(store), m_service(service ? service : store)
{
    setObjectName(QStringLiteral("consoleWindow"));
    // Ends with the application's display name, which some platforms would otherwise append.
    const QString readOnly = store->isReadOnly() ? QStringLiteral(" (read-only)") : QString();
    setWindowTitle(QStringLiteral("%1%2 \u2014 qarvo console").arg(store->location().displayText(), readOnly));
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

    QMenu *file = menuBar()->addMenu(QStringLiteral("&File"));
    file->addAction(quit);
    QMenu *action = menuBar()->addMenu(QStringLiteral("&Action"));
    action->addAction(newWmi);
    action->addAction(newWql);
    action->addAction(newNaqc);
    action->addSeparator();
    action->addAction(reference);
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
        for (QAction *a : {newWmi, newWql, newNaqc, reference}) {
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
    m_ctrl->ShowPane(m_service, QString::fromLatin1(Edition), 1, 0);
    m_ctrl->show();

    const bool naqc = view == category::NAQC;
    (naqc ? m_naqcView : m_wmiView)->setChecked(true);
    QTreeWidgetItem *item = naqc ? m_naqcItem : m_wmiItem;
    if (m_scope->currentItem() != item)
        m_scope->setCurrentItem(item);
    m_viewLabel->setText(naqc ? QStringLiteral("NAQC Rules") : QStringLiteral("WMI Rules"));
}

void ConsoleWindow::afterSheet(short result, qint16 category)
{
    // The sheets never refresh the list; the host does, after every one of them.
    m_ctrl->RefreshList();
    if (result == SheetDone && category != m_view)
        showView(category);
}

void ConsoleWindow::newWMIRule()
{
    afterSheet(m_ctrl->ShowWMIRuleWzd(m_service), category::WMI);
}

void ConsoleWindow::newWQLRule()
{
    afterSheet(m_ctrl->ShowWQLRuleWzd(m_service), category::WMI);
}

void ConsoleWindow::newNAQCRule()
{
    afterSheet(m_ctrl->ShowRQCRuleWzd(m_service), category::NAQC);
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
