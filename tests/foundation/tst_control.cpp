#include "browser/splitdlg.h"
#include "control/modulestate.h"
#include "control/qarvoctrl.h"
#include "control/registration.h"
#include "control/settings.h"
#include "control/sheets.h"
#include "recordingservice.h"

#include <QMetaMethod>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

class TestControl : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup();
    void membersInDispatchOrder();
    void viewTypeAloneChangesNothing();
    void showPaneStoresModuleState();
    void twoControlsShareTheLastService();
    void sheetMembersRouteWithTheirTable_data();
    void sheetMembersRouteWithTheirTable();
    void propertiesMembersThatKeepTheEarlierService();
    void cancelledSheetReturnsTwo();
    void lateBoundCallsReachTheMembers();
    void frameFollowsThePositionRectangle();
    void registrationNeedsTheKey();
    void registrationWritesAndRemovesTheValue();
};

void TestControl::cleanup()
{
    resetSheetRoutes();
}

void TestControl::membersInDispatchOrder()
{
    const QMetaObject *mo = &CqarvoCtrl::staticMetaObject;
    QStringList invokables;
    for (int i = mo->methodOffset(); i < mo->methodCount(); ++i) {
        const QMetaMethod m = mo->method(i);
        if (m.methodType() == QMetaMethod::Method)
            invokables << QString::fromLatin1(m.name());
    }
    QCOMPARE(invokables, QStringList({"ShowPane", "ShowRQCRuleWzd", "RefreshList", "ShowWMIRuleWzd",
                                      "ShowWQLRuleWzd", "ShowWMIProperties", "ShowRQCProperties",
                                      "ShowWQLProperties"}));
    const int p = mo->indexOfProperty("ViewType");
    QVERIFY(p >= 0);
    QVERIFY(mo->property(p).hasNotifySignal());
    QCOMPARE(mo->property(p).typeId(), QMetaType::Short);

    const QMetaMethod showPane = mo->method(mo->indexOfMethod(
        "ShowPane(qarvo::DataService*,QString,short,short)"));
    QVERIFY(showPane.isValid());
    QCOMPARE(showPane.parameterNames(),
             QList<QByteArray>({"pDisp", "VerType", "CheckUser", "cSerCnt"}));
}

void TestControl::viewTypeAloneChangesNothing()
{
    RecordingService s;
    CqarvoCtrl ctrl;
    QSignalSpy changed(&ctrl, &CqarvoCtrl::ViewTypeChanged);
    ctrl.setModified(false);
    ctrl.setProperty("ViewType", QVariant::fromValue(short(6)));
    QCOMPARE(changed.count(), 1);
    QCOMPARE(ctrl.currentViewType(), 6);
    QVERIFY(ctrl.isModified());
    QVERIFY(s.calls().isEmpty());

    ctrl.setViewType(-2); // sign-extended into the 32-bit view type
    QCOMPARE(ctrl.currentViewType(), -2);
}

void TestControl::showPaneStoresModuleState()
{
    RecordingService s;
    CqarvoCtrl ctrl;
    ctrl.ShowPane(&s, QStringLiteral("Enterprise"), 1, 25);
    const ModuleState &state = ModuleState::instance();
    QCOMPARE(state.dataService(), &s);
    QCOMPARE(state.edition(), QStringLiteral("Enterprise"));
    QCOMPARE(state.checkUser(), 1);
    QCOMPARE(state.licenceCount(), 25);

    ctrl.ShowPane(&s, QString(), 0, 0);
    QCOMPARE(state.edition(), QString(""));
    QVERIFY(!state.edition().isNull() || state.edition().isEmpty());

    // Nothing is ever sent through a view type that is neither 5 nor 6.
    QVERIFY(s.calls().isEmpty());

    ctrl.ShowPane(nullptr, QString(), 1, 0); // a null service is kept, never dereferenced
    QCOMPARE(state.dataService(), nullptr);
    ctrl.setViewType(6);
    ctrl.ShowPane(nullptr, QString(), 1, 0);
    ctrl.RefreshList();
}

void TestControl::twoControlsShareTheLastService()
{
    RecordingService first, second;
    CqarvoCtrl a, b;
    a.ShowPane(&first, QString(), 1, 0);
    b.ShowPane(&second, QString(), 1, 0);
    QCOMPARE(currentDataService(), &second);
    a.RefreshList(); // does not change the data service
    QCOMPARE(currentDataService(), &second);
}

void TestControl::sheetMembersRouteWithTheirTable_data()
{
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("caption");
    QTest::addColumn<int>("wql");
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("ruleId");
    QTest::addColumn<bool>("storesService");
    QTest::newRow("ShowWMIRuleWzd") << "ShowWMIRuleWzd" << "New WMIRule Wizard" << 0 << 0 << 0 << true;
    QTest::newRow("ShowWQLRuleWzd") << "ShowWQLRuleWzd" << "New WQLRule Wizard" << 1 << 0 << 0 << true;
    QTest::newRow("ShowWMIProperties") << "ShowWMIProperties" << "WMIRule Properties" << 0 << 1 << 77 << true;
    QTest::newRow("ShowWQLProperties") << "ShowWQLProperties" << "WQLRule Properties" << 1 << 1 << 78 << false;
    QTest::newRow("ShowRQCRuleWzd") << "ShowRQCRuleWzd" << "" << -1 << 0 << 0 << true;
    QTest::newRow("ShowRQCProperties") << "ShowRQCProperties" << "" << -1 << 1 << 79 << false;
}

void TestControl::sheetMembersRouteWithTheirTable()
{
    QFETCH(QString, member);
    QFETCH(QString, caption);
    QFETCH(int, wql);
    QFETCH(int, mode);
    QFETCH(int, ruleId);
    QFETCH(bool, storesService);

    RecordingService earlier, given;
    CqarvoCtrl ctrl;
    ctrl.ShowPane(&earlier, QString(), 1, 0);

    WMISheetRequest wmiSeen{QStringLiteral("<none>"), -1, -1, -1};
    RQCSheetRequest rqcSeen{-1, -1};
    DataService *serviceSeen = nullptr;
    sheetRoutes().wmi = [&](QWidget *, const WMISheetRequest &r) {
        wmiSeen = r;
        serviceSeen = currentDataService();
        return int(SheetDone);
    };
    sheetRoutes().rqc = [&](QWidget *, const RQCSheetRequest &r) {
        rqcSeen = r;
        serviceSeen = currentDataService();
        return int(SheetDone);
    };

    short result = 0;
    const QByteArray name = member.toLatin1();
    bool ok;
    if (member.contains("Properties"))
        ok = QMetaObject::invokeMethod(&ctrl, name.constData(), Q_RETURN_ARG(short, result),
                                       Q_ARG(qarvo::DataService *, &given), Q_ARG(short, short(ruleId)));
    else
        ok = QMetaObject::invokeMethod(&ctrl, name.constData(), Q_RETURN_ARG(short, result),
                                       Q_ARG(qarvo::DataService *, &given));
    QVERIFY(ok);
    QCOMPARE(result, short(1));
    QCOMPARE(serviceSeen, storesService ? &given : &earlier);
    if (wql >= 0) {
        QCOMPARE(wmiSeen.caption, caption);
        QCOMPARE(wmiSeen.wql, wql);
        QCOMPARE(wmiSeen.propertiesMode, mode);
        QCOMPARE(wmiSeen.ruleId, ruleId);
        QCOMPARE(rqcSeen.mode, -1);
    } else {
        QCOMPARE(rqcSeen.mode, mode);
        QCOMPARE(rqcSeen.ruleId, ruleId);
        QCOMPARE(wmiSeen.wql, -1);
    }
    QVERIFY(earlier.calls().isEmpty());
    QVERIFY(given.calls().isEmpty());
}

void TestControl::propertiesMembersThatKeepTheEarlierService()
{
    RecordingService first, second;
    CqarvoCtrl ctrl;
    ctrl.ShowPane(&first, QString(), 1, 0);
    sheetRoutes().wmi = [](QWidget *, const WMISheetRequest &) { return int(SheetDone); };
    ctrl.ShowWQLProperties(&second, 3);
    QCOMPARE(currentDataService(), &first);
    ctrl.ShowWMIProperties(&second, 3);
    QCOMPARE(currentDataService(), &second);
}

void TestControl::cancelledSheetReturnsTwo()
{
    RecordingService s;
    CqarvoCtrl ctrl;
    sheetRoutes().wmi = [](QWidget *, const WMISheetRequest &) { return int(SheetCancelled); };
    sheetRoutes().rqc = [](QWidget *, const RQCSheetRequest &) { return int(SheetCancelled); };
    QCOMPARE(ctrl.ShowWMIRuleWzd(&s), short(2));
    QCOMPARE(ctrl.ShowWQLRuleWzd(&s), short(2));
    QCOMPARE(ctrl.ShowWMIProperties(&s, 1), short(2));
    QCOMPARE(ctrl.ShowWQLProperties(&s, 1), short(2));
    QCOMPARE(ctrl.ShowRQCRuleWzd(&s), short(2));
    QCOMPARE(ctrl.ShowRQCProperties(&s, 1), short(2));
    sheetRoutes().wmi = nullptr; // no sheet at all counts as cancelled
    QCOMPARE(ctrl.ShowWMIRuleWzd(&s), short(2));
}

void TestControl::lateBoundCallsReachTheMembers()
{
    RecordingService s;
    CqarvoCtrl ctrl;
    QVERIFY(ctrl.setProperty("ViewType", 5));
    QCOMPARE(ctrl.property("ViewType").toInt(), 5);
    QVERIFY(QMetaObject::invokeMethod(&ctrl, "ShowPane", Q_ARG(qarvo::DataService *, &s),
                                      Q_ARG(QString, "v"), Q_ARG(short, 1), Q_ARG(short, 2)));
    QCOMPARE(currentDataService(), &s);
    QVERIFY(QMetaObject::invokeMethod(&ctrl, "RefreshList"));
}

void TestControl::frameFollowsThePositionRectangle()
{
    // Right and bottom are taken as width and height: a control at (10, 20) sized 300 x 200
    // has the automation rectangle (10, 20, 310, 220).
    QCOMPARE(CqarvoCtrl::frameGeometryFor(QRect(10, 20, 300, 200)), QRect(10, 20, 310, 220));
    QCOMPARE(CqarvoCtrl::frameGeometryFor(QRect(0, 0, 640, 480)), QRect(0, 0, 640, 480));

    QWidget host;
    auto *ctrl = new CqarvoCtrl(&host);
    host.resize(800, 600);
    host.show();
    QVERIFY(QTest::qWaitForWindowExposed(&host));
    ctrl->setGeometry(0, 0, 500, 400);
    QCOMPARE(ctrl->splitDialog()->geometry(), QRect(0, 0, 500, 400));
    QCOMPARE(ctrl->splitDialog()->frame()->geometry(), QRect(0, 0, 500, 400));
    ctrl->move(5, 6);
    QCOMPARE(ctrl->splitDialog()->geometry(), QRect(0, 0, 500, 400));
    QCOMPARE(ctrl->splitDialog()->frame()->geometry(), QRect(5, 6, 505, 406));
}

void TestControl::registrationNeedsTheKey()
{
    QTemporaryDir dir;
    QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, dir.path());
    QVERIFY(!managerKeyExists());
    QCOMPARE(registerServer(), status::Fail);
    QVERIFY(!managerKeyExists()); // the key is never created
    QCOMPARE(unregisterServer(), status::Ok);
}

void TestControl::registrationWritesAndRemovesTheValue()
{
    QTemporaryDir dir;
    QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, dir.path());
    {
        auto settings = managerSettings();
        settings->setValue(QStringLiteral("ProgramPath"), dir.path());
    }
    QVERIFY(managerKeyExists());
    QCOMPARE(registerServer(), status::Ok);
    QCOMPARE(managerSettings()->value(QStringLiteral("qarvo")).toString(),
             QStringLiteral("{35243C2E-BCC6-4A98-A4AD-573AAF021EB4}"));
    QCOMPARE(unregisterServer(), status::Ok);
    QVERIFY(!managerSettings()->contains(QStringLiteral("qarvo")));
    QCOMPARE(managerSettings()->value(QStringLiteral("ProgramPath")).toString(), dir.path());
}

QTEST_MAIN(TestControl)
#include "tst_control.moc"
