#include "control/qarvoctrl.h"

#include "browser/paneup.h"
#include "browser/panedown.h"
#include "browser/splitdlg.h"
#include "control/modulestate.h"
#include "control/sheets.h"
#include "dataservice/calls.h"
#include "resources/focusring.h"
#include "resources/screenfit.h"

#include <QResizeEvent>

using namespace qarvo;

CqarvoCtrl::CqarvoCtrl(QWidget *parent) : QWidget(parent)
{
    qRegisterMetaType<qarvo::DataService *>();
    // Every sheet and editor the control opens has to fit the host's screen, whatever its size,
    // and show where the keyboard is.
    qarvo::ui::fitWindowsToScreen();
    qarvo::ui::showKeyboardFocus();
    m_splitDlg = new CSplitDlg(this);
    applyGeometry();
}

CqarvoCtrl::~CqarvoCtrl() = default;

void CqarvoCtrl::ShowPane(DataService *pDisp, const QString &VerType, short CheckUser,
                          short cSerCnt)
{
    ModuleState &state = ModuleState::writable();
    state.m_dataService = pDisp;
    state.m_edition = VerType; // a null string arrives as empty text
    state.m_checkUser = CheckUser;
    state.m_licenceCount = cSerCnt;

    CPaneUP *up = m_splitDlg->paneUp();
    up->setViewType(qint16(m_viewType));
    if (m_viewType == category::NAQC)
        up->setupForNaqc();
    else if (m_viewType == category::WMI)
        up->setupForWmi();
    m_splitDlg->paneDown()->setCategory(qint16(m_viewType));
    up->loadList(qint16(m_viewType));
}

short CqarvoCtrl::ShowRQCRuleWzd(DataService *pDisp)
{
    ModuleState::writable().m_dataService = pDisp;
    return short(openRQCRuleSheet(this, {0, 0}));
}

void CqarvoCtrl::RefreshList()
{
    m_splitDlg->paneUp()->loadList(qint16(m_viewType));
}

void CqarvoCtrl::setViewType(short viewType)
{
    m_viewTypeProperty = viewType;
    m_viewType = viewType; // sign-extended
    m_viewTypeCopy = viewType;
    setModified(true);
    Q_EMIT ViewTypeChanged(viewType);
}

short CqarvoCtrl::showWMISheet(const QString &caption, int wql, int propertiesMode, int ruleId)
{
    return short(openWMIRuleSheet(this, {caption, wql, propertiesMode, ruleId}));
}

short CqarvoCtrl::ShowWMIRuleWzd(DataService *pDisp)
{
    ModuleState::writable().m_dataService = pDisp;
    return showWMISheet(QStringLiteral("New WMIRule Wizard"), 0, 0, 0);
}

short CqarvoCtrl::ShowWQLRuleWzd(DataService *pDisp)
{
    ModuleState::writable().m_dataService = pDisp;
    return showWMISheet(QStringLiteral("New WQLRule Wizard"), 1, 0, 0);
}

short CqarvoCtrl::ShowWMIProperties(DataService *pDisp, short ruleid)
{
    ModuleState::writable().m_dataService = pDisp;
    return showWMISheet(QStringLiteral("WMIRule Properties"), 0, 1, ruleid);
}

short CqarvoCtrl::ShowRQCProperties(DataService *, short ruleid)
{
    // Deliberately keeps the data service of the last ShowPane or storing Show… call.
    return short(openRQCRuleSheet(this, {1, ruleid}));
}

short CqarvoCtrl::ShowWQLProperties(DataService *, short ruleid)
{
    // Deliberately keeps the data service of the last ShowPane or storing Show… call.
    return showWMISheet(QStringLiteral("WQLRule Properties"), 1, 1, ruleid);
}

QRect CqarvoCtrl::frameGeometryFor(const QRect &positionRect)
{
    const int right = positionRect.x() + positionRect.width();
    const int bottom = positionRect.y() + positionRect.height();
    return QRect(positionRect.x(), positionRect.y(), right, bottom);
}

void CqarvoCtrl::applyGeometry()
{
    // The split view covers the control's bounds; the frame inside it follows the position
    // rectangle that the host gave the control.
    m_splitDlg->setGeometry(rect());
    m_splitDlg->frame()->setGeometry(frameGeometryFor(geometry()));
}

void CqarvoCtrl::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    applyGeometry();
}

void CqarvoCtrl::moveEvent(QMoveEvent *event)
{
    QWidget::moveEvent(event);
    applyGeometry();
}
