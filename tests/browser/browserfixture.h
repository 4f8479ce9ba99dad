#pragma once

// A shown control with the split view, driven the way the host drives it, and the scripted rows
// the browser tests share.

#include "browser/panedown.h"
#include "browser/paneup.h"
#include "browser/rulelistmodel.h"
#include "browser/splitdlg.h"
#include "control/qarvoctrl.h"
#include "recordingservice.h"

#include <QDir>
#include <QHeaderView>
#include <QTreeWidget>
#include <QtTest>

#include <memory>

namespace qarvo::test {

inline ScriptedReply wmiRules(QList<QVariantList> rows)
{
    return ScriptedReply::table({"rule_wql", "rule_name", "rule_comment", "rule_id"}, std::move(rows));
}

inline ScriptedReply naqcRules(QList<QVariantList> rows)
{
    return ScriptedReply::table({"rule_name", "rule_comment", "rule_id"}, std::move(rows));
}

inline ScriptedReply conditions(QList<QVariantList> rows)
{
    return ScriptedReply::table({"rule_name", "rule_comment", "rule_wql", "rule_op", "rule_namespace",
                                 "rule_class", "rule_field", "rule_type", "rule_condition", "rule_value"},
                                std::move(rows));
}

inline ScriptedReply scriptActions(QList<QVariantList> rows)
{
    return ScriptedReply::table({"rule_select", "rule_script", "rule_scriptact", "rule_comment"},
                                std::move(rows));
}

// Three WMI/WQL rules and two NAQC rules with ids as the service may send them, one detail row each.
struct RulesService : RecordingService
{
    static ScriptedReply wmiList()
    {
        return wmiRules({{0, "Antivirus", "checks the scanner", "000000012"},
                         {1, "Free disk", "WQL count", "000000345"},
                         {7, QString::fromUtf8("Pare-feu activé ✓"), QString::fromUtf8("Kommentar äöü"), "99"}});
    }
    static ScriptedReply naqcList()
    {
        return naqcRules({{"Dial-in", "quarantine profile", "000000007"}, {"VPN", "", "31"}});
    }
    RulesService()
    {
        script("GetWMIRules", wmiList());
        script("GetRQCRule", naqcList());
        script("GetWMIRuleInfo",
               conditions({{"x", "", 0, 0, "root\\cimv2", "Win32_Service", "State", "string", "=", "Running"}}));
        script("GetRQCRuleScriptInfo", scriptActions({{1, "check.cmd", "Connect Actions", "c"}}));
    }
};

struct Browser
{
    std::unique_ptr<QWidget> host = std::make_unique<QWidget>();
    CqarvoCtrl *ctrl = nullptr;

    explicit Browser(QSize size = QSize(760, 560))
    {
        host->resize(size);
        ctrl = new CqarvoCtrl(host.get());
        ctrl->setGeometry(QRect(QPoint(0, 0), size));
        host->show();
        QVERIFY(QTest::qWaitForWindowExposed(host.get()));
    }
    Browser(short viewType, DataService *service, short checkUser = 1) : Browser()
    {
        show(viewType, service, checkUser);
    }

    void show(short viewType, DataService *service, short checkUser = 1)
    {
        ctrl->setViewType(viewType);
        ctrl->ShowPane(service, QStringLiteral("Standard"), checkUser, 10);
    }

    CSplitDlg *dialog() const { return ctrl->splitDialog(); }
    CPaneUP *up() const { return dialog()->paneUp(); }
    CPaneDown *down() const { return dialog()->paneDown(); }
    RuleListView *list() const { return up()->ruleList(); }
    QAbstractItemModel *model() const { return list()->model(); }
    QTreeWidget *details() const { return down()->detailList(); }

    QPoint rowPoint(int row, int column = 0) const
    {
        list()->scrollTo(model()->index(row, column));
        return list()->visualRect(model()->index(row, column)).center();
    }
    // A point in the list below every row.
    QPoint emptySpace() const { return QPoint(40, list()->viewport()->height() - 5); }
    void clickRow(int row, Qt::KeyboardModifiers modifiers = {}) const
    {
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, modifiers, rowPoint(row));
    }
    QString cell(int row, int column) const { return model()->index(row, column).data().toString(); }
    QVariant role(int row, int r) const { return model()->index(row, 0).data(r); }
};

inline QStringList headerTitles(QAbstractItemView *view)
{
    QStringList out;
    for (int i = 0; i < view->model()->columnCount(); ++i)
        out << view->model()->headerData(i, Qt::Horizontal).toString();
    return out;
}

inline QList<int> headerWidths(QTreeView *view)
{
    QList<int> out;
    for (int i = 0; i < view->header()->count(); ++i)
        out << view->header()->sectionSize(i);
    return out;
}

inline QStringList rowTexts(QAbstractItemView *view, int row)
{
    QStringList out;
    for (int i = 0; i < view->model()->columnCount(); ++i)
        out << view->model()->index(row, i).data().toString();
    return out;
}

// Writes a picture of `widget` where QARVO_SCREENSHOT_DIR points, so that a person can look at it.
inline void keepScreenshot(QWidget *widget, const QString &name)
{
    const QString dir = qEnvironmentVariable("QARVO_SCREENSHOT_DIR");
    if (dir.isEmpty())
        return;
    QDir().mkpath(dir);
    QCoreApplication::processEvents(); // what the user sees once pending layouts have run
    widget->grab().save(dir + u'/' + name + QStringLiteral(".png"));
}

} // namespace qarvo::test
