#include "browserfixture.h"

#include "control/modulestate.h"
#include "control/sheets.h"
#include "dataservice/calls.h"
#include "dialogdriver.h"
#include "resources/images.h"

#include <QDialog>
#include <QMenu>
#include <QPainter>
#include <QPlainTextEdit>
#include <QTimer>

using namespace qarvo;
using namespace qarvo::test;

namespace {

const QString WmiText = QStringLiteral(
    "  WMI Rule Object checks the system resources using Windows Management Instrumentation (WMI).");
const QString NaqcText = QStringLiteral(
    "  NAQC Rule object supports network access control as a part of Internet Authentication "
    "Service (IAS) in Windows Server 2003 environments");

// Three WMI/WQL rules with ids as the service may send them.
ScriptedReply threeWmiRules()
{
    return wmiRules({{0, "Antivirus", "checks the scanner", "000000012"},
                     {1, "Free disk", "WQL count", "000000345"},
                     {7, QString::fromUtf8("Pare-feu activé ✓"), QString::fromUtf8("Kommentar äöü"), "99"}});
}

ScriptedReply twoNaqcRules()
{
    return naqcRules({{"Dial-in", "quarantine profile", "000000007"},
                      {"VPN", "", "31"}});
}

// Runs `driver` on the next popup menu, with a safety net that closes it.
void whenMenuShown(std::function<void(QMenu *)> driver)
{
    auto *timer = new QTimer(qApp);
    auto tries = std::make_shared<int>(0);
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, timer, [=]() {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        if (menu && menu->isVisible()) {
            timer->stop();
            timer->deleteLater();
            driver(menu);
            return;
        }
        if (++*tries > 500) {
            timer->stop();
            timer->deleteLater();
        }
    });
    timer->start();
}

void rightClick(Browser &b, const QPoint &pos)
{
    QWidget *viewport = b.list()->viewport();
    QTest::mouseClick(viewport, Qt::RightButton, {}, pos);
    QContextMenuEvent event(QContextMenuEvent::Mouse, pos, viewport->mapToGlobal(pos));
    QApplication::sendEvent(viewport, &event);
}

} // namespace

class TestPaneUp : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup();

    void setUpPerView_data();
    void setUpPerView();
    void secondSetUpAddsColumnsInFrontAndTextAtCaret();
    void noViewTypeShowsNothing();

    void wmiRowsInServiceOrder();
    void naqcRowsInServiceOrder();
    void userCheckZeroLeavesListEmpty();
    void refusedEditionStopsLoad();
    void failedLoadStopsWithListCleared();
    void rowSetFaultKeepsRowsAlreadyAdded_data();
    void rowSetFaultKeepsRowsAlreadyAdded();
    void refreshAfterViewTypeChangeKeepsColumns();

    void selectionShowsDetails_data();
    void selectionShowsDetails();
    void deselectionAndFocusOnlyChangeClearDetails();

    void propertiesFromDoubleClick_data();
    void propertiesFromDoubleClick();
    void cancelledPropertiesChangeNothing();
    void doubleClickOnEmptySpace();
    void contextMenuOnRowAndOnEmptySpace();

    void refusedDeleteListsEveryUser();
    void allowedDeleteRemovesOnlyThatRow_data();
    void allowedDeleteRemovesOnlyThatRow();
    void deleteStopsSilentlyOnFailure_data();
    void deleteStopsSilentlyOnFailure();

    void emblemPerView();
    void hundredThousandRules();
};

void TestPaneUp::cleanup()
{
    resetSheetRoutes();
    setEditionCheck({});
}

void TestPaneUp::setUpPerView_data()
{
    QTest::addColumn<short>("view");
    QTest::addColumn<QStringList>("titles");
    QTest::addColumn<QList<int>>("widths");
    QTest::addColumn<QString>("text");
    QTest::newRow("NAQC") << short(5) << QStringList{"RuleName", "Comment"} << QList<int>{150, 200}
                          << NaqcText;
    QTest::newRow("WMI") << short(6) << QStringList{"RuleName", "RuleType", "Comment"}
                         << QList<int>{150, 100, 200} << WmiText;
}

void TestPaneUp::setUpPerView()
{
    QFETCH(short, view);
    QFETCH(QStringList, titles);
    QFETCH(QList<int>, widths);
    QFETCH(QString, text);

    RecordingService s;
    Browser b;
    b.show(view, &s);
    QCOMPARE(headerTitles(b.list()), titles);
    QCOMPARE(headerWidths(b.list()), widths);
    for (int i = 0; i < titles.size(); ++i)
        QCOMPARE(b.model()->headerData(i, Qt::Horizontal, Qt::TextAlignmentRole).value<Qt::Alignment>()
                     & Qt::AlignHorizontal_Mask,
                 Qt::AlignLeft);
    QCOMPARE(b.up()->description()->toPlainText(), text);
    QVERIFY(b.up()->description()->isReadOnly());
    QCOMPARE(b.list()->selectionBehavior(), QAbstractItemView::SelectRows);
    QCOMPARE(b.list()->selectionMode(), QAbstractItemView::SingleSelection);
    QVERIFY(b.list()->uniformRowHeights());
    QCOMPARE(b.down()->category(), view);
}

void TestPaneUp::secondSetUpAddsColumnsInFrontAndTextAtCaret()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    Browser b;
    b.show(5, &s);
    b.list()->header()->resizeSection(1, 333); // the user widened "Comment"
    b.show(6, &s);
    QCOMPARE(headerTitles(b.list()),
             QStringList({"RuleName", "RuleType", "Comment", "RuleName", "Comment"}));
    QCOMPARE(headerWidths(b.list()), QList<int>({150, 100, 200, 150, 333}));
    QCOMPARE(b.up()->description()->toPlainText(), NaqcText + WmiText);

    // Rows fill the first columns; the older ones stay empty.
    QCOMPARE(b.model()->rowCount(), 3);
    QCOMPARE(b.cell(0, 0), QStringLiteral("Antivirus"));
    QCOMPARE(b.cell(0, 1), QStringLiteral("WMI"));
    QCOMPARE(b.cell(0, 2), QStringLiteral("checks the scanner"));
    QCOMPARE(b.cell(0, 3), QString());

    b.show(6, &s);
    QCOMPARE(b.model()->columnCount(), 8);
    QCOMPARE(b.up()->description()->toPlainText(), NaqcText + WmiText + WmiText);
}

void TestPaneUp::noViewTypeShowsNothing()
{
    RecordingService s;
    Browser b;
    b.show(0, &s);
    QCOMPARE(b.model()->columnCount(), 0);
    QCOMPARE(b.model()->rowCount(), 0);
    QCOMPARE(b.up()->description()->toPlainText(), QString());
    b.ctrl->RefreshList();
    QVERIFY(s.calls().isEmpty());
}

void TestPaneUp::wmiRowsInServiceOrder()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    Browser b;
    b.show(6, &s);

    QCOMPARE(s.signatures(), QStringList({"GetWMIRules(slot)"}));
    QCOMPARE(b.model()->rowCount(), 3);
    const QStringList names = {"Antivirus", "Free disk", QString::fromUtf8("Pare-feu activé ✓")};
    const QStringList kinds = {"WMI", "WQL", "WQL"};
    const QStringList comments = {"checks the scanner", "WQL count", QString::fromUtf8("Kommentar äöü")};
    const QList<int> ids = {12, 345, 99};
    for (int r = 0; r < 3; ++r) {
        QCOMPARE(b.cell(r, 0), names[r]);
        QCOMPARE(b.cell(r, 1), kinds[r]);
        QCOMPARE(b.cell(r, 2), comments[r]);
        QCOMPARE(b.role(r, images::ImageIndexRole).toInt(), int(images::WmiRule));
        QCOMPARE(b.role(r, Qt::UserRole).typeId(), QMetaType::Int);
        QCOMPARE(b.role(r, Qt::UserRole).toInt(), ids[r]);
    }
    QCOMPARE(s.rowSets().size(), 1);
    QVERIFY(s.rowSets().first()->closed);
    QVERIFY(b.list()->selectionModel()->selectedRows().isEmpty());

    keepScreenshot(b.host.get(), QStringLiteral("wmi-view"));
}

void TestPaneUp::naqcRowsInServiceOrder()
{
    RecordingService s;
    s.script("GetRQCRule", naqcRules({{"Dial-in", "quarantine profile", "000000007"},
                                      {"", QString(1500, QChar(u'x')), "12abc"},
                                      {QString(300, QChar(u'N')), "", "not a number"},
                                      {QString::fromUtf8("Удалённый доступ"), "", "-3"}}));
    Browser b;
    b.show(5, &s);
    QCOMPARE(s.signatures(), QStringList({"GetRQCRule(slot)"}));
    QCOMPARE(b.model()->rowCount(), 4);
    QCOMPARE(b.cell(0, 0), QStringLiteral("Dial-in"));
    QCOMPARE(b.cell(0, 1), QStringLiteral("quarantine profile"));
    QCOMPARE(b.cell(1, 0), QString());
    QCOMPARE(b.cell(1, 1), QString(1500, QChar(u'x')));
    QCOMPARE(b.cell(2, 0), QString(300, QChar(u'N')));
    QCOMPARE(b.cell(3, 0), QString::fromUtf8("Удалённый доступ"));
    const QList<int> ids = {7, 12, 0, -3};
    for (int r = 0; r < 4; ++r) {
        QCOMPARE(b.role(r, images::ImageIndexRole).toInt(), int(images::NaqcRule));
        QCOMPARE(b.role(r, Qt::UserRole).toInt(), ids[r]);
    }
    keepScreenshot(b.host.get(), QStringLiteral("naqc-view"));
}

void TestPaneUp::userCheckZeroLeavesListEmpty()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    Browser b;
    b.show(6, &s, 0);
    QCOMPARE(b.model()->rowCount(), 0);
    QCOMPARE(b.model()->columnCount(), 3);
    QCOMPARE(b.up()->description()->toPlainText(), WmiText);
    b.ctrl->RefreshList();
    QCOMPARE(b.model()->rowCount(), 0);
    QVERIFY(s.calls().isEmpty());
}

void TestPaneUp::refusedEditionStopsLoad()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    QList<qint16> asked;
    setEditionCheck([&](qint16 category, EditionAction action, QWidget *) {
        if (action == EditionAction::LoadList)
            asked << category;
        return false;
    });
    Browser b;
    b.show(6, &s);
    QCOMPARE(asked, QList<qint16>({6}));
    QCOMPARE(b.model()->rowCount(), 0);
    QVERIFY(s.calls().isEmpty());
}

void TestPaneUp::failedLoadStopsWithListCleared()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    MessageCatcher messages;
    Browser b;
    b.show(6, &s);
    QCOMPARE(b.model()->rowCount(), 3);

    s.scriptOnce("GetWMIRules", ScriptedReply::failure());
    b.ctrl->RefreshList();
    QCOMPARE(b.model()->rowCount(), 0);

    // A service that does not know the name fails the same way.
    b.ctrl->RefreshList();
    QCOMPARE(b.model()->rowCount(), 3);
    s.forgetMethod("GetWMIRules");
    b.ctrl->RefreshList();
    QCOMPARE(b.model()->rowCount(), 0);

    // A reply without a row set ends the load on first use.
    s.setKnownMethods(RecordingService::catalogue());
    ScriptedReply noRows;
    noRows.noRowSet = true;
    s.scriptOnce("GetWMIRules", noRows);
    b.ctrl->RefreshList();
    QCOMPARE(b.model()->rowCount(), 0);
    QVERIFY(messages.messages.isEmpty());
}

void TestPaneUp::rowSetFaultKeepsRowsAlreadyAdded_data()
{
    QTest::addColumn<short>("view");
    QTest::addColumn<int>("faultAt");
    QTest::addColumn<bool>("onClose");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("column1");
    QTest::addColumn<QList<int>>("ids");
    // NAQC reads name, comment, id per row; WMI reads wql, name, comment, id.
    QTest::newRow("NAQC fault at 2nd row comment")
        << short(5) << 4 << false << QStringList{"Dial-in", "VPN"}
        << QStringList{"quarantine profile", ""} << QList<int>{7, 0};
    QTest::newRow("NAQC fault at 2nd row name")
        << short(5) << 3 << false << QStringList{"Dial-in"} << QStringList{"quarantine profile"}
        << QList<int>{7};
    QTest::newRow("WMI fault at 2nd row kind")
        << short(6) << 4 << false << QStringList{"Antivirus"} << QStringList{"WMI"} << QList<int>{12};
    QTest::newRow("WMI fault at 3rd row id")
        << short(6) << 11 << false
        << QStringList{"Antivirus", "Free disk", QString::fromUtf8("Pare-feu activé ✓")}
        << QStringList{"WMI", "WQL", "WQL"} << QList<int>{12, 345, 0};
    QTest::newRow("WMI fault on close")
        << short(6) << -1 << true
        << QStringList{"Antivirus", "Free disk", QString::fromUtf8("Pare-feu activé ✓")}
        << QStringList{"WMI", "WQL", "WQL"} << QList<int>{12, 345, 99};
}

void TestPaneUp::rowSetFaultKeepsRowsAlreadyAdded()
{
    QFETCH(short, view);
    QFETCH(int, faultAt);
    QFETCH(bool, onClose);
    QFETCH(QStringList, names);
    QFETCH(QStringList, column1);
    QFETCH(QList<int>, ids);

    RecordingService s;
    ScriptedReply reply = view == 5 ? twoNaqcRules() : threeWmiRules();
    reply.faultAtFieldRead = faultAt;
    reply.faultOnClose = onClose;
    s.script(view == 5 ? "GetRQCRule" : "GetWMIRules", reply);
    QList<qint32> faults;
    setFaultReporter([&](const DataServiceError &e) { faults << e.status(); });
    Browser b;
    b.show(view, &s);
    setFaultReporter({});

    QCOMPARE(faults, QList<qint32>({status::Fail}));
    QCOMPARE(b.model()->rowCount(), names.size());
    for (int r = 0; r < names.size(); ++r) {
        QCOMPARE(b.cell(r, 0), names[r]);
        QCOMPARE(b.cell(r, 1), column1[r]);
        QCOMPARE(b.role(r, Qt::UserRole).toInt(), ids[r]);
    }
    // The list stays usable after the fault.
    b.clickRow(0);
    QCOMPARE(b.up()->selectionMark(), 0);
}

void TestPaneUp::refreshAfterViewTypeChangeKeepsColumns()
{
    RecordingService s;
    s.script("GetRQCRule", twoNaqcRules());
    s.script("GetWMIRules", threeWmiRules());
    Browser b;
    b.show(5, &s);
    b.ctrl->setViewType(6);
    QCOMPARE(b.model()->rowCount(), 2); // nothing happens until the host asks
    b.ctrl->RefreshList();
    QCOMPARE(headerTitles(b.list()), QStringList({"RuleName", "Comment"}));
    QCOMPARE(b.model()->rowCount(), 3);
    QCOMPARE(b.cell(1, 1), QStringLiteral("WQL"));
    QCOMPARE(s.methods(), QStringList({"GetRQCRule", "GetWMIRules"}));
}

void TestPaneUp::selectionShowsDetails_data()
{
    QTest::addColumn<short>("view");
    QTest::addColumn<int>("row");
    QTest::addColumn<QString>("call");
    QTest::addColumn<QString>("heading");
    QTest::newRow("WMI") << short(6) << 0 << "GetWMIRuleInfo(text:000000012, slot)" << "Antivirus";
    QTest::newRow("WQL") << short(6) << 1 << "GetWMIRuleInfo(text:000000345, slot)" << "Free disk";
    QTest::newRow("NAQC") << short(5) << 1 << "GetRQCRuleScriptInfo(text:000000031, slot)" << "VPN";
}

void TestPaneUp::selectionShowsDetails()
{
    QFETCH(short, view);
    QFETCH(int, row);
    QFETCH(QString, call);
    QFETCH(QString, heading);

    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    s.script("GetRQCRule", twoNaqcRules());
    s.script("GetWMIRuleInfo",
             conditions({{"x", "", 0, 0, "root\\cimv2", "Win32_Service", "State", "string", "=", "Running"}}));
    s.script("GetRQCRuleScriptInfo", scriptActions({{1, "check.cmd", "Connect Actions", "c"}}));
    Browser b;
    b.show(view, &s);
    s.clear();

    b.clickRow(row);
    QCOMPARE(s.signatures(), QStringList({call}));
    QCOMPARE(b.down()->heading(), heading);
    QCOMPARE(b.details()->topLevelItemCount(), 1);
    QCOMPARE(b.up()->selectionMark(), row);

    // Moving on with the keyboard shows the next rule and nothing else is asked.
    s.clear();
    b.list()->setFocus();
    QTest::keyClick(b.list(), Qt::Key_Up);
    QCOMPARE(b.up()->selectionMark(), row - 1 < 0 ? 0 : row - 1);
    if (row > 0) {
        QCOMPARE(s.calls().size(), 1);
        QCOMPARE(b.down()->heading(), b.cell(row - 1, 0));
        QCOMPARE(b.details()->topLevelItemCount(), 1);
    }
}

void TestPaneUp::deselectionAndFocusOnlyChangeClearDetails()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    s.script("GetWMIRuleInfo",
             conditions({{"x", "", 1, 0, "root\\cimv2", "SELECT * FROM Win32_Process", "#Count", "uint32", ">", "3"}}));
    Browser b;
    b.show(6, &s);
    b.clickRow(1);
    QCOMPARE(b.down()->heading(), QStringLiteral("Free disk"));
    QCOMPARE(b.details()->topLevelItemCount(), 1);
    QCOMPARE(b.details()->headerItem()->text(3), QStringLiteral("WQL"));

    // Ctrl-click takes the selection away: the details go, their columns stay.
    s.clear();
    b.clickRow(1, Qt::ControlModifier);
    QCOMPARE(b.up()->selectionMark(), -1);
    QVERIFY(!b.list()->currentIndex().isValid());
    QCOMPARE(b.down()->heading(), QString());
    QCOMPARE(b.details()->topLevelItemCount(), 0);
    QCOMPARE(b.details()->columnCount(), 8);
    QCOMPARE(b.details()->headerItem()->text(3), QStringLiteral("WQL"));
    QVERIFY(s.calls().isEmpty());

    // Moving only the focus, with the selection left where it is, clears the details too.
    b.clickRow(0);
    QCOMPARE(b.details()->topLevelItemCount(), 1);
    s.clear();
    b.list()->selectionModel()->setCurrentIndex(b.model()->index(2, 0), QItemSelectionModel::NoUpdate);
    QCOMPARE(b.up()->selectionMark(), 0);
    QCOMPARE(b.down()->heading(), QString());
    QCOMPARE(b.details()->topLevelItemCount(), 0);
    QVERIFY(s.calls().isEmpty());
}

void TestPaneUp::propertiesFromDoubleClick_data()
{
    QTest::addColumn<short>("view");
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("wql");
    QTest::addColumn<int>("ruleId");
    QTest::addColumn<QStringList>("after");
    QTest::newRow("WMI rule") << short(6) << 0 << 0 << 12
                              << QStringList{"GetWMIRules(slot)", "GetWMIRuleInfo(text:000000012, slot)"};
    QTest::newRow("WQL rule") << short(6) << 2 << 1 << 99
                              << QStringList{"GetWMIRules(slot)", "GetWMIRuleInfo(text:000000099, slot)"};
    QTest::newRow("NAQC rule") << short(5) << 0 << -1 << 7
                               << QStringList{"GetRQCRule(slot)", "GetRQCRuleScriptInfo(text:000000007, slot)"};
}

void TestPaneUp::propertiesFromDoubleClick()
{
    QFETCH(short, view);
    QFETCH(int, row);
    QFETCH(int, wql);
    QFETCH(int, ruleId);
    QFETCH(QStringList, after);

    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    s.script("GetRQCRule", twoNaqcRules());
    s.script("GetWMIRuleInfo", conditions({{"x", "", 0, 0, "root", "C", "F", "string", "=", "v"}}));
    s.script("GetRQCRuleScriptInfo", scriptActions({{1, "a.cmd", "Pre-Connect", ""}}));
    Browser b;
    b.show(view, &s);

    QList<WMISheetRequest> wmi;
    QList<RQCSheetRequest> rqc;
    QStringList callsWhileOpen;
    sheetRoutes().wmi = [&](QWidget *, const WMISheetRequest &r) {
        wmi << r;
        callsWhileOpen = s.signatures();
        return int(SheetDone);
    };
    sheetRoutes().rqc = [&](QWidget *, const RQCSheetRequest &r) {
        rqc << r;
        callsWhileOpen = s.signatures();
        return int(SheetDone);
    };

    const QString heading = b.cell(row, 0);
    QTest::mouseDClick(b.list()->viewport(), Qt::LeftButton, {}, b.rowPoint(row, 1));
    s.clear();
    // The double click opened the sheet once, for the selected row.
    if (view == 6) {
        QCOMPARE(wmi.size(), 1);
        QCOMPARE(wmi[0].caption, QStringLiteral("Properties"));
        QCOMPARE(wmi[0].wql, wql);
        QCOMPARE(wmi[0].propertiesMode, 1);
        QCOMPARE(wmi[0].ruleId, ruleId);
        QVERIFY(rqc.isEmpty());
    } else {
        QCOMPARE(rqc.size(), 1);
        QCOMPARE(rqc[0].mode, 1);
        QCOMPARE(rqc[0].ruleId, ruleId);
        QVERIFY(wmi.isEmpty());
    }

    // Closed with OK: reloaded, nothing selected, the lower pane shows the same rule.
    b.up()->runCommand(CPaneUP::CommandProperties); // no selection any more: nothing happens
    QCOMPARE(wmi.size() + rqc.size(), 1);
    b.clickRow(row);
    s.clear();
    b.up()->runCommand(CPaneUP::CommandProperties);
    QCOMPARE(s.signatures(), after);
    QVERIFY(b.list()->selectionModel()->selectedRows().isEmpty());
    QCOMPARE(b.down()->heading(), heading);
    QCOMPARE(b.details()->topLevelItemCount(), 1);
    QCOMPARE(b.model()->rowCount(), view == 6 ? 3 : 2);
}

void TestPaneUp::cancelledPropertiesChangeNothing()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    Browser b;
    b.show(6, &s);
    int opened = 0;
    sheetRoutes().wmi = [&](QWidget *, const WMISheetRequest &) {
        ++opened;
        return int(SheetCancelled);
    };
    b.clickRow(1);
    s.clear();
    b.list()->setFocus();
    QTest::keyClick(b.list(), Qt::Key_Return); // the keyboard way to the same command
    QCOMPARE(opened, 1);
    QVERIFY(s.calls().isEmpty());
    QCOMPARE(b.up()->selectionMark(), 1);

    setEditionCheck([](qint16, EditionAction action, QWidget *) {
        return action != EditionAction::Properties;
    });
    b.up()->openProperties();
    QCOMPARE(opened, 1);
}

void TestPaneUp::doubleClickOnEmptySpace()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    Browser b;
    b.show(6, &s);
    QList<int> ids;
    sheetRoutes().wmi = [&](QWidget *, const WMISheetRequest &r) {
        ids << r.ruleId;
        return int(SheetCancelled);
    };
    const QPoint below(40, b.list()->viewport()->height() - 5);
    QVERIFY(!b.list()->indexAt(below).isValid());
    QTest::mouseDClick(b.list()->viewport(), Qt::LeftButton, {}, below);
    QVERIFY(ids.isEmpty());

    b.clickRow(1);
    QTest::mouseDClick(b.list()->viewport(), Qt::LeftButton, {}, below);
    QCOMPARE(ids, QList<int>({345}));
}

void TestPaneUp::contextMenuOnRowAndOnEmptySpace()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    Browser b;
    b.show(6, &s);
    s.clear();

    QStringList items;
    QString headingWhileOpen;
    bool shown = false;
    whenMenuShown([&](QMenu *menu) {
        shown = true;
        headingWhileOpen = b.down()->heading();
        for (QAction *a : menu->actions())
            items << (a->isSeparator() ? QStringLiteral("-") : a->text() + (a->isEnabled() ? "" : "(off)"));
        QAction *remove = menu->actions().last();
        QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(remove).center());
    });
    rightClick(b, b.rowPoint(2, 2));
    QTRY_VERIFY(shown);
    QCOMPARE(items, QStringList({"Properties", "-", "Delete"}));
    QCOMPARE(headingWhileOpen, QString::fromUtf8("Pare-feu activé ✓"));
    // "Delete" ran on the row the right click selected.
    QTRY_COMPARE(b.model()->rowCount(), 2);
    QVERIFY(s.signatures().contains("DelWMIRule(text:000000099, short:1)"));

    shown = false;
    whenMenuShown([&](QMenu *menu) {
        shown = true;
        menu->close();
    });
    const QPoint below(40, b.list()->viewport()->height() - 5);
    rightClick(b, below);
    QTest::qWait(100);
    QVERIFY(!shown);
    QApplication::closeAllWindows();
}

void TestPaneUp::refusedDeleteListsEveryUser()
{
    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    s.script("RulesUsedExRule", users({"Office network", QString::fromUtf8("Zweigstelle Süd"), "Lab"}));
    Browser b;
    b.show(6, &s);
    MessageCatcher messages;
    b.clickRow(0);
    s.clear();
    b.up()->runCommand(CPaneUP::CommandDelete);

    QCOMPARE(s.signatures(), QStringList({"RulesUsedExRule(text:Antivirus, short:6, slot)"}));
    QVERIFY(s.rowSets().first()->closed);
    QCOMPARE(messages.messages.size(), 1);
    QCOMPARE(messages.messages[0].caption, QStringLiteral("INFO"));
    QCOMPARE(messages.messages[0].icon, ui::MessageIcon::Information);
    QCOMPARE(messages.messages[0].text,
             QString::fromUtf8("Cannot delete the [Antivirus] - because it is being used by the follow rule(s).\n"
                               "\n    - Office network"
                               "\n    - Zweigstelle Süd"
                               "\n    - Lab"));
    QCOMPARE(b.model()->rowCount(), 3);

    // What the administrator sees.
    if (!qEnvironmentVariableIsEmpty("QARVO_SCREENSHOT_DIR")) {
        ui::setMessageHandler({});
        whenModalShown([](QWidget *modal) {
            keepScreenshot(modal, QStringLiteral("refused-delete"));
            static_cast<QDialog *>(modal)->accept();
        });
        b.up()->deleteSelectedRule();
    }
}

void TestPaneUp::allowedDeleteRemovesOnlyThatRow_data()
{
    QTest::addColumn<short>("view");
    QTest::addColumn<int>("row");
    QTest::addColumn<QStringList>("sent");
    QTest::addColumn<QStringList>("left");
    QTest::newRow("WMI") << short(6) << 1
                         << QStringList{"RulesUsedExRule(text:Free disk, short:6, slot)",
                                        "DelWMIRule(text:000000345, short:1)"}
                         << QStringList{"Antivirus", QString::fromUtf8("Pare-feu activé ✓")};
    QTest::newRow("NAQC") << short(5) << 0
                          << QStringList{"RulesUsedExRule(text:Dial-in, short:5, slot)",
                                         "DelRQCRule(text:000000007, short:1)"}
                          << QStringList{"VPN"};
}

void TestPaneUp::allowedDeleteRemovesOnlyThatRow()
{
    QFETCH(short, view);
    QFETCH(int, row);
    QFETCH(QStringList, sent);
    QFETCH(QStringList, left);

    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    s.script("GetRQCRule", twoNaqcRules());
    Browser b;
    b.show(view, &s);
    MessageCatcher messages;
    b.clickRow(row);
    s.clear();
    b.up()->deleteSelectedRule();
    QCOMPARE(s.signatures(), sent); // no question, no reload, no neighbour fetched
    QVERIFY(messages.messages.isEmpty());
    QCOMPARE(b.down()->heading(), QString());
    QCOMPARE(b.details()->topLevelItemCount(), 0);
    QStringList names;
    for (int r = 0; r < b.model()->rowCount(); ++r)
        names << b.cell(r, 0);
    QCOMPARE(names, left);

    // Nothing is selected any more, so a second Delete does nothing.
    s.clear();
    b.up()->deleteSelectedRule();
    QVERIFY(s.calls().isEmpty());
}

void TestPaneUp::deleteStopsSilentlyOnFailure_data()
{
    QTest::addColumn<int>("failAt");
    QTest::addColumn<int>("faultAt");
    QTest::addColumn<int>("calls");
    QTest::newRow("usage check fails") << 0 << -1 << 1;
    QTest::newRow("delete fails") << 1 << -1 << 2;
    QTest::newRow("usage row set faults") << -1 << 1 << 1;
}

void TestPaneUp::deleteStopsSilentlyOnFailure()
{
    QFETCH(int, failAt);
    QFETCH(int, faultAt);
    QFETCH(int, calls);

    RecordingService s;
    s.script("GetWMIRules", threeWmiRules());
    ScriptedReply used = users({"A", "B"});
    used.faultAtFieldRead = faultAt;
    if (faultAt >= 0)
        s.script("RulesUsedExRule", used);
    Browser b;
    b.show(6, &s);
    MessageCatcher messages;
    b.clickRow(2);
    s.clear();
    if (failAt >= 0)
        s.failCall(failAt);
    setFaultReporter([](const DataServiceError &) {});
    b.up()->deleteSelectedRule();
    setFaultReporter({});
    QCOMPARE(s.calls().size(), calls);
    QVERIFY(messages.messages.isEmpty());
    QCOMPARE(b.model()->rowCount(), 3);
}

void TestPaneUp::emblemPerView()
{
    RecordingService s;
    Browser b;
    const QRect emblem = CPaneUP::emblemRect();
    QCOMPARE(emblem, QRect(10, 10, 35, 38));
    // Child controls keep clear of the emblem so it is always visible.
    for (QWidget *child : b.up()->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly))
        if (child->isVisible())
            QVERIFY2(!child->geometry().intersects(emblem), qPrintable(child->objectName()));

    auto paneImage = [&] { return b.up()->grab().toImage().convertToFormat(QImage::Format_RGB32); };
    auto expected = [&](int resource) {
        QImage image(b.up()->size(), QImage::Format_RGB32);
        image.fill(b.up()->palette().color(QPalette::Window));
        QPainter p(&image);
        p.drawPixmap(emblem, images::bitmap(resource, emblem.size()));
        return image.copy(emblem);
    };
    const QImage blank = paneImage().copy(emblem);
    QCOMPARE(blank.pixelColor(17, 19), b.up()->palette().color(QPalette::Window));

    b.show(6, &s);
    QCOMPARE(paneImage().copy(emblem), expected(images::WmiEmblem));
    b.show(5, &s);
    QCOMPARE(paneImage().copy(emblem), expected(images::NaqcEmblem));
    QVERIFY(expected(images::WmiEmblem) != expected(images::NaqcEmblem));
}

void TestPaneUp::hundredThousandRules()
{
    constexpr int count = 100000;
    QList<QVariantList> rows;
    rows.reserve(count);
    for (int i = 0; i < count; ++i)
        rows.append({i % 3 == 0 ? 1 : 0, QStringLiteral("Rule %1").arg(i),
                     QStringLiteral("Comment %1").arg(i), ruleIdText(i)});
    RecordingService s;
    s.script("GetWMIRules", wmiRules(rows));
    s.script("GetWMIRuleInfo", conditions({}));
    Browser b;
    b.show(6, &s);
    QCOMPARE(b.model()->rowCount(), count);
    QCOMPARE(b.cell(count - 1, 0), QStringLiteral("Rule 99999"));
    QCOMPARE(b.role(count - 1, Qt::UserRole).toInt(), count - 1);

    b.list()->setFocus();
    b.clickRow(0);
    QTest::keyClick(b.list(), Qt::Key_End);
    QCOMPARE(b.up()->selectionMark(), count - 1);
    QCOMPARE(s.signatures().last(), QStringLiteral("GetWMIRuleInfo(text:000099999, slot)"));
    QCOMPARE(b.details()->columnCount(), 8); // no conditions: the WMI layout

    b.up()->deleteSelectedRule();
    QCOMPARE(b.model()->rowCount(), count - 1);
    b.ctrl->RefreshList();
    QCOMPARE(b.model()->rowCount(), count);
}

QTEST_MAIN(TestPaneUp)
#include "tst_paneup.moc"
