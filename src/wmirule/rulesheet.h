#pragma once

// The sheet through which a WMI or WQL rule is created (a wizard) or edited (a tabbed property
// sheet). It owns the rule record its pages share, and the steps that store the rule.

#include "dataservice/ruleid.h"
#include "wmirule/ruledata.h"

#include <QObject>
#include <QPointer>

class QDialog;
class QPushButton;
class QTabWidget;
class QWidget;
class QWizard;

namespace qarvo {

class CWMIRulePage;
class CWMIRulePage1;
class CWMIRulePage2;
class CWMIRulePage3;

class CWMIRuleSheet : public QObject
{
    Q_OBJECT
public:
    // `ruleNumber` is the rule to edit in properties mode. The data service is the module's.
    CWMIRuleSheet(QWidget *parent, RuleKind kind, SheetMode mode, const QString &caption,
                  int ruleNumber = 0);
    ~CWMIRuleSheet() override;

    // Runs the sheet modally: SheetCancelled when it was cancelled, SheetDone otherwise.
    int exec();

    QDialog *window() const;
    QWizard *wizard() const;      // wizard mode only
    QTabWidget *tabs() const;     // properties mode only
    QPushButton *okButton() const; // properties mode only

    CWMIRulePage1 *page1() const { return m_page1; }
    CWMIRulePage2 *page2() const { return m_page2; }
    CWMIRulePage3 *page3() const { return m_page3; }

    WMIRuleData &record() { return m_record; }
    const WMIRuleData &record() const { return m_record; }
    RuleKind kind() const { return m_record.kind; }
    SheetMode mode() const { return m_record.mode; }
    int ruleNumber() const { return m_ruleNumber; }
    const QString &loadedName() const { return m_loadedName; }
    // Properties mode: whether name, comment and every condition were read. When not, OK stays
    // off, since storing deletes the rule first and would write back only what was read.
    bool loadedCompletely() const { return m_loadedCompletely; }

    // Titles of the pages in this kind and mode.
    QString pageTitle(int page) const;

    // Re-evaluates the buttons after a page changed what they depend on.
    void updateButtons();

    // Wizard Finish: draws the id, checks the name, writes the conditions. True when the sheet
    // may close.
    bool finishWizard();
    // Properties OK: stores both pages, renames if needed, deletes and stores again; closes the
    // sheet where that is the outcome.
    void storeProperties();

    // Whether an id search is going on (the window stays responsive meanwhile).
    bool isSearchingId() const { return m_searchingId; }
    // Cancel pressed while an id search was going on ends the search and closes the sheet.
    void requestCancel();

private:
    void loadRule();
    void activatePage(CWMIRulePage *page);
    bool pauseBetweenTries();

    WMIRuleData m_record;
    int m_ruleNumber = 0;
    QString m_loadedName;
    bool m_loadedCompletely = true;

    QPointer<QDialog> m_window;
    QWizard *m_wizard = nullptr;
    QTabWidget *m_tabs = nullptr;
    QPushButton *m_ok = nullptr;
    CWMIRulePage1 *m_page1 = nullptr;
    CWMIRulePage2 *m_page2 = nullptr;
    CWMIRulePage3 *m_page3 = nullptr;

    bool m_searchingId = false;
    bool m_cancelRequested = false;
};

} // namespace qarvo
