#include "wmirule/rulesheet.h"

#include "control/modulestate.h"
#include "control/sheets.h"
#include "dataservice/calls.h"
#include "resources/images.h"
#include "resources/strings.h"
#include "resources/ui.h"
#include "wmirule/listviewer.h"
#include "wmirule/rulepages.h"

#include <QAbstractButton>
#include <QDialog>
#include <QDialogButtonBox>
#include <QEventLoop>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTimer>
#include <QVBoxLayout>
#include <QWizard>

namespace qarvo {

namespace {

// How long the id search waits, with the window responsive, before asking for the next
// candidate. A new candidate only comes up once the clock's second changes, so asking faster
// only spins.
constexpr int IdRetryPauseMs = 50;

class RuleWizard : public QWizard
{
public:
    RuleWizard(CWMIRuleSheet &sheet, QWidget *parent) : QWizard(parent), m_sheet(sheet) {}

    void reject() override
    {
        // Cancel during an id search ends the search first; the sheet closes once it has.
        if (m_sheet.isSearchingId()) {
            m_sheet.requestCancel();
            return;
        }
        QWizard::reject();
    }

    void rejectNow() { QWizard::reject(); }

private:
    CWMIRuleSheet &m_sheet;
};

} // namespace

CWMIRuleSheet::CWMIRuleSheet(QWidget *parent, RuleKind kind, SheetMode mode,
                             const QString &caption, int ruleNumber)
    : m_ruleNumber(ruleNumber)
{
    m_record.kind = kind;
    m_record.mode = mode;
    m_record.service = currentDataService();

    if (mode == SheetMode::Wizard) {
        auto *wizard = new RuleWizard(*this, parent);
        m_wizard = wizard;
        m_window = wizard;
        wizard->setObjectName(QStringLiteral("wmiRuleSheet"));
        wizard->setWindowTitle(caption);
        wizard->setWizardStyle(QWizard::ModernStyle);
        wizard->setOption(QWizard::HaveHelpButton, false);
        wizard->setPixmap(QWizard::LogoPixmap, images::bitmap(images::WmiWizardHeader));
        m_page1 = new CWMIRulePage1(*this);
        m_page2 = new CWMIRulePage2(*this);
        m_page3 = new CWMIRulePage3(*this);
        wizard->addPage(m_page1);
        wizard->addPage(m_page2);
        wizard->addPage(m_page3);
        connect(wizard, &QWizard::currentIdChanged, this, [this](int id) {
            if (m_wizard)
                activatePage(qobject_cast<CWMIRulePage *>(m_wizard->page(id)));
        });
        wizard->setMinimumSize(560, 420);
    } else {
        auto *dialog = new QDialog(parent);
        m_window = dialog;
        dialog->setObjectName(QStringLiteral("wmiRuleSheet"));
        // The caller's title gives way to the plain one of every property sheet.
        dialog->setWindowTitle(QStringLiteral("Properties"));
        m_page1 = new CWMIRulePage1(*this);
        m_page2 = new CWMIRulePage2(*this);
        // Page 3 exists for its write step only and is never shown.
        m_page3 = new CWMIRulePage3(*this);
        m_page3->setParent(dialog);
        m_page3->hide();

        m_tabs = new QTabWidget(dialog);
        m_tabs->setObjectName(QStringLiteral("sheetTabs"));
        m_tabs->setAccessibleName(QStringLiteral("Pages"));
        m_tabs->addTab(m_page1, pageTitle(0));
        m_tabs->addTab(m_page2, pageTitle(1));
        auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
        buttons->setObjectName(QStringLiteral("sheetButtons"));
        m_ok = buttons->button(QDialogButtonBox::Ok);
        m_ok->setObjectName(QStringLiteral("okButton"));
        buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("cancelButton"));
        connect(m_ok, &QPushButton::clicked, this, &CWMIRuleSheet::storeProperties);
        connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
        connect(m_tabs, &QTabWidget::currentChanged, this, [this](int index) {
            if (m_tabs)
                activatePage(qobject_cast<CWMIRulePage *>(m_tabs->widget(index)));
        });
        auto *layout = new QVBoxLayout(dialog);
        layout->addWidget(m_tabs, 1);
        layout->addWidget(buttons);
        dialog->resize(560, 400);
    }

    for (int i = 0; i < 3; ++i) {
        QWizardPage *page = i == 0 ? static_cast<QWizardPage *>(m_page1)
                            : i == 1 ? static_cast<QWizardPage *>(m_page2)
                                     : static_cast<QWizardPage *>(m_page3);
        page->setWindowTitle(pageTitle(i));
        connect(page, &QWizardPage::completeChanged, this, &CWMIRuleSheet::updateButtons);
    }

    if (mode == SheetMode::Properties)
        loadRule();
    activatePage(m_page1);
}

CWMIRuleSheet::~CWMIRuleSheet()
{
    delete m_window.data();
}

QDialog *CWMIRuleSheet::window() const
{
    return m_window.data();
}

QWizard *CWMIRuleSheet::wizard() const
{
    return m_wizard;
}

QTabWidget *CWMIRuleSheet::tabs() const
{
    return m_tabs;
}

QPushButton *CWMIRuleSheet::okButton() const
{
    return m_ok;
}

QString CWMIRuleSheet::pageTitle(int page) const
{
    const bool wql = kind() == RuleKind::WQL;
    if (mode() == SheetMode::Wizard)
        return wql ? QStringLiteral("Add WMI Rule Wizard - WQL") : QStringLiteral("Add WMI Rule Wizard");
    switch (page) {
    case 0: return QStringLiteral("General");
    case 1: return wql ? QStringLiteral("WQL") : QStringLiteral("WMI");
    default: return QStringLiteral("Final");
    }
}

int CWMIRuleSheet::exec()
{
    if (!m_window)
        return SheetCancelled;
    const int result = m_window->exec();
    return result == QDialog::Accepted ? SheetDone : SheetCancelled;
}

void CWMIRuleSheet::loadRule()
{
    m_record.ruleId = fitRecordText(ruleIdText(m_ruleNumber), recordsize::RuleId);
    bool headerRead = false;
    guardAction([this, &headerRead] {
        Reply reply = calls::GetWMIRuleInfo(m_record.service, m_record.ruleId);
        if (reply.failed())
            return;
        RowReader rows(reply);
        if (!rows.atEnd()) {
            m_record.ruleName = fitRecordText(rows.text(QStringLiteral("rule_name")), recordsize::RuleName);
            m_record.comment = fitRecordText(rows.text(QStringLiteral("rule_comment")), recordsize::Comment);
            m_loadedName = m_record.ruleName;
        }
        rows.close();
        headerRead = true;
    });
    m_page1->loadFromRecord();
    const bool conditionsRead = m_page2->loadFromService();
    m_loadedCompletely = headerRead && conditionsRead;
    if (!m_loadedCompletely)
        m_ok->setToolTip(tr("The rule could not be read completely; storing it now would lose "
                            "conditions."));
    updateButtons();
}

void CWMIRuleSheet::activatePage(CWMIRulePage *page)
{
    if (page)
        page->activate();
    updateButtons();
}

void CWMIRuleSheet::updateButtons()
{
    if (!m_ok)
        return; // the wizard asks its pages
    // Both rules of the wizard hold here too: a name, and at least one condition.
    m_ok->setEnabled(m_loadedCompletely && m_page1->isComplete() && m_page2->isComplete());
}

bool CWMIRuleSheet::pauseBetweenTries()
{
    QPointer<QDialog> window = m_window;
    QEventLoop pause;
    QTimer::singleShot(IdRetryPauseMs, &pause, &QEventLoop::quit);
    pause.exec();
    return window && !m_cancelRequested;
}

void CWMIRuleSheet::requestCancel()
{
    m_cancelRequested = true;
}

bool CWMIRuleSheet::finishWizard()
{
    if (m_searchingId)
        return false;

    // Only Cancel stays available while the search goes on.
    QList<std::pair<QAbstractButton *, bool>> held;
    if (m_wizard) {
        for (auto which : {QWizard::BackButton, QWizard::NextButton, QWizard::FinishButton}) {
            if (QAbstractButton *b = m_wizard->button(which)) {
                held.append({b, b->isEnabled()});
                b->setEnabled(false);
            }
        }
    }
    m_searchingId = true;
    m_cancelRequested = false;
    RuleIdGenerator generator;
    const DrawnRuleId drawn = drawUnusedRuleId(m_record.service, category::WMI, generator,
                                               [this] { return pauseBetweenTries(); });
    m_searchingId = false;
    for (const auto &[button, enabled] : held)
        button->setEnabled(enabled);

    if (drawn.abandoned) {
        if (m_cancelRequested && m_wizard) {
            m_cancelRequested = false;
            static_cast<RuleWizard *>(m_wizard)->rejectNow();
        }
        return false;
    }
    if (!drawn.accepted())
        return false;
    m_record.ruleId = fitRecordText(drawn.id, recordsize::RuleId);

    const YesNo nameTaken = calls::CanUseExRuleName(m_record.service, m_record.ruleName, category::WMI);
    if (nameTaken.failed())
        return false;
    if (nameTaken.yes) {
        ui::info(m_window, strings::DuplicateRuleName);
        return false;
    }
    return m_page3->writeStep();
}

void CWMIRuleSheet::storeProperties()
{
    if (!m_loadedCompletely)
        return; // deleting first would drop the conditions that were never read
    bool close = false;
    guardAction([this, &close] {
        m_page1->store();
        m_page2->store();

        if (m_record.ruleName != m_loadedName) {
            const YesNo taken =
                calls::CanUseExRuleName(m_record.service, m_record.ruleName, category::WMI);
            if (taken.failed())
                return;
            if (taken.yes) {
                ui::info(m_window, strings::DuplicateRuleName);
                return;
            }
            // The loaded name stays as it was: a second OK after a later failure renames from it.
            if (failed(calls::UpdateExRuleNameInRule(m_record.service, m_loadedName,
                                                     m_record.ruleName, category::WMI)))
                return;
        }
        if (failed(calls::DelWMIRule(m_record.service, m_record.ruleId, delmode::BeforeStoreAgain)))
            return;
        // The old conditions are gone now; whatever the re-adding achieves, the sheet closes.
        m_page3->writeStep();
        close = true;
    });
    if (close && m_window)
        m_window->accept();
}

} // namespace qarvo
