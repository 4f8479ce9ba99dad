#pragma once

// The NAQC rule sheet: a wizard that creates a rule (General, CM Profile, Final) or a property
// sheet that edits one (General, CM Profile). All pages work on the sheet's one rule record.

#include "naqcrule/rqcrulerecord.h"

#include <QWizardPage>

#include <functional>
#include <memory>

class QDialog;
class QDialogButtonBox;
class QIcon;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QTabWidget;
class QTreeWidget;
class QTreeWidgetItem;

namespace qarvo {
struct CmsProfile;
}

// General: rule name and comment.
class CRQCRulePage1 : public QWizardPage
{
    Q_OBJECT
public:
    explicit CRQCRulePage1(qarvo::RQCRuleRecord &record, QWidget *parent = nullptr);

    bool isComplete() const override;
    bool validatePage() override;

    void loadFromRecord();
    void storeToRecord();

    QLineEdit *nameEdit() const { return m_name; }
    QLineEdit *commentEdit() const { return m_comment; }

private:
    qarvo::RQCRuleRecord &m_record;
    QLineEdit *m_name;
    QLineEdit *m_comment;
};

// CM Profile: the service name and the script actions of an imported profile.
class CRQCRulePage2 : public QWizardPage
{
    Q_OBJECT
public:
    static const QString &instructionText();
    static const QString &fileFilter();

    explicit CRQCRulePage2(qarvo::RQCRuleRecord &record, QWidget *parent = nullptr);

    bool validatePage() override;

    // "Import CMSFile": asks for a profile and shows it; a cancelled dialog or a broken file
    // leaves the page as it was.
    void importProfile();
    void showProfile(const qarvo::CmsProfile &profile);
    // Properties mode: the script entries stored with the rule. False when they could not be
    // read in full (a failed call or a fault part-way); an empty set is read in full.
    bool loadStoredScripts(const QString &ruleId);
    void storeToRecord();

    QLineEdit *serviceNameEdit() const { return m_serviceName; }
    QTreeWidget *scriptList() const { return m_list; }
    QPushButton *importButton() const { return m_import; }

private:
    static QTreeWidgetItem *scriptItem(const QIcon &icon, const QString &scriptFile,
                                       const QString &actionType, const QString &comment,
                                       bool checked);

    qarvo::RQCRuleRecord &m_record;
    QLabel *m_instruction;
    QLineEdit *m_serviceName;
    QTreeWidget *m_list;
    QPushButton *m_import;
};

// Final: the summary; Finish stores the rule.
class CRQCRulePage3 : public QWizardPage
{
    Q_OBJECT
public:
    CRQCRulePage3(qarvo::RQCRuleRecord &record, std::function<bool()> finish,
                  QWidget *parent = nullptr);

    void initializePage() override;
    bool validatePage() override;

    QPlainTextEdit *summaryEdit() const { return m_summary; }
    // The summary exactly as built (CR LF line breaks); the edit shows it with plain breaks.
    const QString &summaryText() const { return m_text; }

private:
    qarvo::RQCRuleRecord &m_record;
    std::function<bool()> m_finish;
    QPlainTextEdit *m_summary;
    QString m_text;
};

class CRQCRuleSheet
{
public:
    enum Mode { Wizard = 0, Properties = 1 };

    // Properties mode loads the rule `ruleId` at once.
    CRQCRuleSheet(QWidget *parent, int mode, int ruleId = 0);
    ~CRQCRuleSheet();
    CRQCRuleSheet(const CRQCRuleSheet &) = delete;
    CRQCRuleSheet &operator=(const CRQCRuleSheet &) = delete;

    // Runs the sheet modally: QDialog::Accepted after Finish or OK, else QDialog::Rejected.
    int exec();

    QDialog *dialog() const { return m_dialog.get(); }
    qarvo::RQCRuleRecord &record() { return m_record; }
    const QString &loadedName() const { return m_loadedName; }
    CRQCRulePage1 *page1() const { return m_page1; }
    CRQCRulePage2 *page2() const { return m_page2; }
    CRQCRulePage3 *page3() const { return m_page3; }

    // Wizard Finish: draw an id, store every script entry, then the rule.
    bool finish();
    // Properties OK: rename check and propagation, delete, store again.
    bool save();

    bool busy() const { return m_busy; }
    // True while Finish is looking for an id the service accepts; closing the wizard then asks
    // the search to stop.
    bool searchingId() const { return m_searchingId; }
    void requestCancel() { m_cancelRequested = true; }
    // Properties mode: OK is offered only with a name and every stored script entry read.
    bool canSave() const;

    static constexpr int IdRetryPauseMs = 20;

private:
    void load(int ruleId);
    bool chooseRuleId();
    bool pauseBeforeNextTry();

    qarvo::RQCRuleRecord m_record;
    QString m_loadedName;
    std::unique_ptr<QDialog> m_dialog;
    QTabWidget *m_tabs = nullptr;
    QDialogButtonBox *m_buttons = nullptr;
    CRQCRulePage1 *m_page1 = nullptr;
    CRQCRulePage2 *m_page2 = nullptr;
    CRQCRulePage3 *m_page3 = nullptr;
    bool m_busy = false;
    bool m_searchingId = false;
    bool m_cancelRequested = false;
    bool m_scriptsLoaded = true;
};
