#include "naqcrule/rqcrulesheet.h"

#include "control/modulestate.h"
#include "dataservice/calls.h"
#include "dataservice/ruleid.h"
#include "naqcrule/cmsprofile.h"
#include "naqcrule/inireader.h"
#include "resources/images.h"
#include "resources/strings.h"
#include "resources/ui.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QEventLoop>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScopeGuard>
#include <QTabWidget>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QWizard>

using namespace qarvo;

namespace {

const QString &wizardTitle()
{
    static const QString title = QStringLiteral("Add NAQC Rule Wizard");
    return title;
}

// Keeps the wait cursor up for as long as the window cannot take input.
class BusyCursor
{
public:
    BusyCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~BusyCursor() { QApplication::restoreOverrideCursor(); }
    BusyCursor(const BusyCursor &) = delete;
    BusyCursor &operator=(const BusyCursor &) = delete;
};

// Both frames of the sheet refuse to close while a store is under way: the store runs inside
// the button handler and the window must still be there when it returns. While a new id is
// being searched for, closing (Cancel, Escape, the window's close box) asks the search to stop
// instead; the sheet closes once it has.
template <class Frame>
class RQCFrame : public Frame
{
public:
    RQCFrame(CRQCRuleSheet &sheet, QWidget *parent) : Frame(parent), m_sheet(sheet) {}
    void reject() override
    {
        if (m_sheet.searchingId())
            m_sheet.requestCancel();
        else
            Frame::reject();
    }
    void done(int result) override
    {
        if (!m_sheet.busy())
            Frame::done(result);
    }

private:
    CRQCRuleSheet &m_sheet;
};

QString withPlainBreaks(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}

// A script row. The columns are narrow for script paths, so each cell's full text is its
// tooltip; answering that from the text saves storing every text twice.
class ScriptItem : public QTreeWidgetItem
{
public:
    using QTreeWidgetItem::QTreeWidgetItem;
    QVariant data(int column, int role) const override
    {
        return QTreeWidgetItem::data(column, role == Qt::ToolTipRole ? int(Qt::DisplayRole) : role);
    }
};

// A caption and its line edit, the caption being the edit's keyboard shortcut target.
std::pair<QLabel *, QLineEdit *> labelledEdit(QWidget *parent, const QString &caption,
                                              const QString &objectName, qsizetype fieldSize)
{
    auto *label = new QLabel(caption, parent);
    auto *edit = new QLineEdit(parent);
    edit->setObjectName(objectName);
    edit->setMaxLength(int(fieldSize - 1));
    label->setBuddy(edit);
    return {label, edit};
}

} // namespace

// --- General --------------------------------------------------------------------------------

CRQCRulePage1::CRQCRulePage1(RQCRuleRecord &record, QWidget *parent)
    : QWizardPage(parent), m_record(record)
{
    setObjectName(QStringLiteral("generalPage"));
    setTitle(strings::text(strings::NaqcPage1Title));
    setSubTitle(strings::text(strings::NaqcPage1Subtitle));

    QLabel *nameLabel;
    QLabel *commentLabel;
    std::tie(nameLabel, m_name) = labelledEdit(this, QStringLiteral("Rule Na&me : "),
                                               QStringLiteral("ruleNameEdit"), recordsize::RuleName);
    std::tie(commentLabel, m_comment) = labelledEdit(
        this, QStringLiteral("&Comment : "), QStringLiteral("commentEdit"), recordsize::Comment);

    auto *grid = new QGridLayout(this);
    grid->addWidget(nameLabel, 0, 0);
    grid->addWidget(m_name, 0, 1);
    grid->addWidget(commentLabel, 1, 0);
    grid->addWidget(m_comment, 1, 1);
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(2, 1);

    connect(m_name, &QLineEdit::textChanged, this, &QWizardPage::completeChanged);
}

bool CRQCRulePage1::isComplete() const
{
    // No trimming: a name of blanks is a name.
    return !m_name->text().isEmpty();
}

bool CRQCRulePage1::validatePage()
{
    return guardAction([this] { storeToRecord(); });
}

void CRQCRulePage1::loadFromRecord()
{
    m_name->setText(m_record.ruleName);
    m_comment->setText(m_record.comment);
}

void CRQCRulePage1::storeToRecord()
{
    m_record.ruleName = fitRecordText(m_name->text(), recordsize::RuleName);
    m_record.comment = fitRecordText(m_comment->text(), recordsize::Comment);
}

// --- CM Profile -----------------------------------------------------------------------------

const QString &CRQCRulePage2::instructionText()
{
    static const QString text = QStringLiteral(
        "  Import s CMS file in CM Profile of NAQC (Network Access Quarantine Control System).  "
        "\r\n  Select a script you want to apply.");
    return text;
}

const QString &CRQCRulePage2::fileFilter()
{
    static const QString filter = QStringLiteral("CMSFiles(*.cms);;All files(*.*)");
    return filter;
}

CRQCRulePage2::CRQCRulePage2(RQCRuleRecord &record, QWidget *parent)
    : QWizardPage(parent), m_record(record)
{
    setObjectName(QStringLiteral("cmProfilePage"));
    setTitle(strings::text(strings::NaqcPage2Title));
    setSubTitle(strings::text(strings::NaqcPage2Subtitle));

    m_instruction = new QLabel(withPlainBreaks(instructionText()), this);
    m_instruction->setObjectName(QStringLiteral("instructionText"));
    m_instruction->setWordWrap(true);

    QLabel *serviceLabel;
    std::tie(serviceLabel, m_serviceName) =
        labelledEdit(this, QStringLiteral("&Service Name"), QStringLiteral("serviceNameEdit"),
                     recordsize::ServiceName);

    m_list = new QTreeWidget(this);
    m_list->setObjectName(QStringLiteral("scriptList"));
    m_list->setAccessibleName(QStringLiteral("Scripts of the profile"));
    m_list->setColumnCount(3);
    m_list->setHeaderLabels({QStringLiteral("ScriptFile"), QStringLiteral("Action Type"),
                             QStringLiteral("Comment")});
    m_list->setColumnWidth(0, 140);
    m_list->setColumnWidth(1, 120);
    m_list->setColumnWidth(2, 180);
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->setAllColumnsShowFocus(true);
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setIconSize(QSize(16, 16));
    m_list->header()->setStretchLastSection(false);
    m_list->setToolTip(QStringLiteral("Check the scripts the rule applies."));

    m_import = new QPushButton(QStringLiteral("Import CMSFile"), this);
    m_import->setObjectName(QStringLiteral("importButton"));
    m_import->setAutoDefault(false);
    m_import->setToolTip(
        QStringLiteral("Read the service name and script actions of a Connection Manager "
                       "profile (.cms)."));

    auto *serviceRow = new QHBoxLayout;
    serviceRow->addWidget(serviceLabel);
    serviceRow->addWidget(m_serviceName, 1);

    auto *buttonRow = new QHBoxLayout;
    buttonRow->addStretch(1);
    buttonRow->addWidget(m_import);

    auto *column = new QVBoxLayout(this);
    column->addWidget(m_instruction);
    column->addLayout(serviceRow);
    column->addWidget(m_list, 1);
    column->addLayout(buttonRow);

    connect(m_import, &QPushButton::clicked, this, &CRQCRulePage2::importProfile);
}

void CRQCRulePage2::importProfile()
{
    guardAction([this] {
        const QString path = ui::getOpenFileName(this, QString(), QString(), fileFilter(), QStringLiteral("cms"));
        if (path.isEmpty())
            return;
        std::optional<CmsProfile> profile;
        {
            BusyCursor busy;
            profile = readCmsProfile(path);
        }
        if (!profile) {
            ui::error(this, strings::FileBroken);
            return;
        }
        showProfile(*profile);
    });
}

void CRQCRulePage2::showProfile(const CmsProfile &profile)
{
    QList<QTreeWidgetItem *> items;
    items.reserve(profile.rows.size());
    const QIcon icon = images::icon(images::WmiRule);
    for (const CmsScriptRow &row : profile.rows)
        items.append(scriptItem(icon, row.scriptFile, row.actionType, row.comment, false));
    m_list->setUpdatesEnabled(false);
    m_list->clear();
    // Added in one batch, the view lays itself out once rather than once per row.
    m_list->addTopLevelItems(items);
    m_list->setUpdatesEnabled(true);
    m_serviceName->setText(profile.serviceName);
}

QTreeWidgetItem *CRQCRulePage2::scriptItem(const QIcon &icon, const QString &scriptFile,
                                           const QString &actionType, const QString &comment,
                                           bool checked)
{
    auto *item = new ScriptItem(QStringList{scriptFile, actionType, comment});
    item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
    item->setCheckState(0, checked ? Qt::Checked : Qt::Unchecked);
    item->setIcon(0, icon);
    item->setData(0, images::ImageIndexRole, int(images::WmiRule));
    return item;
}

bool CRQCRulePage2::loadStoredScripts(const QString &ruleId)
{
    bool complete = false;
    const bool noFault = guardAction([&] {
        Reply reply = calls::GetRQCRuleScriptInfo(m_record.service, ruleId);
        if (reply.failed())
            return;
        const QIcon icon = images::icon(images::WmiRule);
        forEachRow(reply, [&](RowReader &row) {
            const bool selected = row.integer(QStringLiteral("rule_select")) == 1;
            const QString script = row.text(QStringLiteral("rule_script"));
            const QString action = row.text(QStringLiteral("rule_scriptact"));
            const QString comment = row.text(QStringLiteral("rule_comment"));
            m_list->addTopLevelItem(scriptItem(icon, script, action, comment, selected));
        });
        complete = true;
    });
    return noFault && complete;
}

bool CRQCRulePage2::validatePage()
{
    return guardAction([this] { storeToRecord(); });
}

void CRQCRulePage2::storeToRecord()
{
    m_record.serviceName = fitRecordText(m_serviceName->text(), recordsize::ServiceName);
    QList<RQCScriptEntry> scripts;
    scripts.reserve(m_list->topLevelItemCount());
    for (int i = 0; i < m_list->topLevelItemCount(); ++i) {
        const QTreeWidgetItem *item = m_list->topLevelItem(i);
        scripts.append(RQCScriptEntry{fitRecordText(item->text(0), recordsize::ScriptFile),
                        fitRecordText(item->text(1), recordsize::ActionType),
                        fitRecordText(item->text(2), recordsize::Comment),
                        qint16(item->checkState(0) == Qt::Checked ? 1 : 0)});
    }
    m_record.scripts = std::move(scripts);
}

// --- Final ----------------------------------------------------------------------------------

CRQCRulePage3::CRQCRulePage3(RQCRuleRecord &record, std::function<bool()> finish,
                             QWidget *parent)
    : QWizardPage(parent), m_record(record), m_finish(std::move(finish))
{
    setObjectName(QStringLiteral("finalPage"));
    setTitle(strings::text(strings::NaqcPage3Title));
    setSubTitle(strings::text(strings::NaqcPage3Subtitle));

    m_summary = new QPlainTextEdit(this);
    m_summary->setObjectName(QStringLiteral("summaryEdit"));
    m_summary->setAccessibleName(QStringLiteral("Summary of the new rule"));
    m_summary->setReadOnly(true);
    m_summary->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_summary->setTabStopDistance(m_summary->fontMetrics().horizontalAdvance(u' ') * 4);

    auto *column = new QVBoxLayout(this);
    column->addWidget(m_summary);
}

void CRQCRulePage3::initializePage()
{
    m_text = rqcSummaryText(m_record);
    m_summary->setPlainText(withPlainBreaks(m_text));
}

bool CRQCRulePage3::validatePage()
{
    return m_finish && m_finish();
}

// --- The sheet ------------------------------------------------------------------------------

CRQCRuleSheet::CRQCRuleSheet(QWidget *parent, int mode, int ruleId)
{
    m_record.service = currentDataService();
    m_record.propertiesMode = mode == Properties ? 1 : 0;

    if (m_record.propertiesMode == 0) {
        auto *wizard = new RQCFrame<QWizard>(*this, parent);
        m_dialog.reset(wizard);
        wizard->setObjectName(QStringLiteral("rqcRuleWizard"));
        wizard->setWindowTitle(wizardTitle());
        wizard->setWizardStyle(QWizard::ModernStyle);
        wizard->setPixmap(QWizard::LogoPixmap, images::bitmap(images::NaqcWizardHeader));
        wizard->setOption(QWizard::HaveHelpButton, false);
        m_page1 = new CRQCRulePage1(m_record, wizard);
        m_page2 = new CRQCRulePage2(m_record, wizard);
        m_page3 = new CRQCRulePage3(m_record, [this] { return finish(); }, wizard);
        wizard->addPage(m_page1);
        wizard->addPage(m_page2);
        wizard->addPage(m_page3);
        wizard->resize(560, 440);
        return;
    }

    auto *dialog = new RQCFrame<QDialog>(*this, parent);
    m_dialog.reset(dialog);
    dialog->setObjectName(QStringLiteral("rqcRuleProperties"));
    dialog->setWindowTitle(QStringLiteral("NAQCRule Properties"));
    m_tabs = new QTabWidget(dialog);
    m_tabs->setObjectName(QStringLiteral("propertyTabs"));
    m_tabs->setAccessibleName(QStringLiteral("Pages"));
    m_page1 = new CRQCRulePage1(m_record, m_tabs);
    m_page2 = new CRQCRulePage2(m_record, m_tabs);
    m_tabs->addTab(m_page1, QStringLiteral("General"));
    m_tabs->addTab(m_page2, QStringLiteral("CM Profile"));
    m_buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
    m_buttons->setObjectName(QStringLiteral("buttonBox"));
    auto *column = new QVBoxLayout(dialog);
    column->addWidget(m_tabs);
    column->addWidget(m_buttons);
    dialog->resize(520, 420);

    QPushButton *ok = m_buttons->button(QDialogButtonBox::Ok);
    QObject::connect(m_buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    QObject::connect(ok, &QPushButton::clicked, dialog, [this] {
        if (save())
            m_dialog->accept();
    });
    QObject::connect(m_page1, &QWizardPage::completeChanged, ok,
                     [this, ok] { ok->setEnabled(canSave()); });

    load(ruleId);
    ok->setEnabled(canSave());
    if (!m_scriptsLoaded)
        ok->setToolTip(QStringLiteral("The rule's script entries could not be read in full; "
                                      "saving now would lose the rest of them."));
}

bool CRQCRuleSheet::canSave() const
{
    // OK deletes the stored rule before storing it again: with only part of its script entries
    // read, it would store less than it deleted.
    return m_scriptsLoaded && m_page1->isComplete();
}

CRQCRuleSheet::~CRQCRuleSheet() = default;

int CRQCRuleSheet::exec()
{
    return m_dialog->exec();
}

void CRQCRuleSheet::load(int ruleId)
{
    m_record.ruleId = ruleIdText(ruleId);
    guardAction([this] {
        Reply reply = calls::GetRQCRuleInfo(m_record.service, m_record.ruleId);
        if (reply.failed())
            return;
        RowReader row(reply);
        if (!row.atEnd()) {
            m_record.ruleName = fitRecordText(row.text(QStringLiteral("rule_name")), recordsize::RuleName);
            m_record.serviceName =
                fitRecordText(row.text(QStringLiteral("rule_servicename")), recordsize::ServiceName);
            m_record.comment = fitRecordText(row.text(QStringLiteral("rule_comment")), recordsize::Comment);
        }
        row.close();
    });
    // What was read before a fault counts as loaded, so that it is not taken for a rename.
    m_loadedName = m_record.ruleName;
    m_page1->loadFromRecord();
    m_page2->serviceNameEdit()->setText(m_record.serviceName);
    m_scriptsLoaded = m_page2->loadStoredScripts(m_record.ruleId);
}

bool CRQCRuleSheet::pauseBeforeNextTry()
{
    // While the service refuses candidates, a new one can only come up when the clock's second
    // changes. The pause keeps the window painted and lets Cancel through; the buttons that
    // could start a second Finish are held meanwhile.
    QEventLoop loop;
    QTimer::singleShot(IdRetryPauseMs, &loop, &QEventLoop::quit);
    loop.exec();
    return !m_cancelRequested;
}

bool CRQCRuleSheet::chooseRuleId()
{
    QList<std::pair<QAbstractButton *, bool>> held;
    if (auto *wizard = qobject_cast<QWizard *>(m_dialog.get())) {
        for (auto which : {QWizard::BackButton, QWizard::NextButton, QWizard::FinishButton}) {
            if (QAbstractButton *b = wizard->button(which)) {
                held.append({b, b->isEnabled()});
                b->setEnabled(false);
            }
        }
    }
    m_searchingId = true;
    m_cancelRequested = false;
    const auto release = qScopeGuard([&] {
        m_searchingId = false;
        for (const auto &[button, enabled] : held)
            button->setEnabled(enabled);
    });
    RuleIdGenerator generator;
    const DrawnRuleId drawn = drawUnusedRuleId(m_record.service, category::NAQC, generator,
                                               [this] { return pauseBeforeNextTry(); });
    if (!drawn.accepted())
        return false;
    m_record.ruleId = drawn.id.left(int(recordsize::RuleId - 1));
    return true;
}

bool CRQCRuleSheet::finish()
{
    if (m_busy)
        return false;
    m_busy = true;
    bool stored = false;
    guardAction([this, &stored] {
        if (!chooseRuleId())
            return;
        BusyCursor cursor;
        stored = storeRQCRule(m_record.service, m_record);
    });
    m_busy = false;
    if (m_cancelRequested) {
        // The administrator gave up on the search: nothing was stored, the sheet closes.
        m_cancelRequested = false;
        m_dialog->done(QDialog::Rejected);
    }
    return stored;
}

bool CRQCRuleSheet::save()
{
    if (m_busy || !canSave())
        return false;
    m_busy = true;
    bool saved = false;
    guardAction([this, &saved] {
        m_page1->storeToRecord();
        m_page2->storeToRecord();
        DataService *service = m_record.service;
        if (m_record.ruleName != m_loadedName) {
            const YesNo taken = calls::CanUseExRuleName(service, m_record.ruleName, category::NAQC);
            if (taken.failed())
                return;
            if (taken.yes) {
                ui::info(m_dialog.get(), strings::DuplicateRuleName);
                return;
            }
            if (failed(calls::UpdateExRuleNameInRule(service, m_loadedName, m_record.ruleName,
                                                     category::NAQC)))
                return;
        }
        if (failed(calls::DelRQCRule(service, m_record.ruleId, delmode::BeforeStoreAgain)))
            return;
        // The old rule is gone by now; the sheet closes whatever the store answers.
        storeRQCRule(service, m_record);
        saved = true;
    });
    m_busy = false;
    return saved;
}
