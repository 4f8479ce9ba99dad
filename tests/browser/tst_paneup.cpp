#include "browserfixture.h"

#include "control/modulestate.h"
#include "control/sheets.h"
#include "dataservice/calls.h"
#include "dialogdriver.h"
#include "resources/groupbox.h"
#include "resources/images.h"

#include <QDialog>
#include <QMenu>
#include <QPainter>
#include <QPointer>
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
const QString PareFeu = QString::fromUtf8("Pare-feu activé ✓");

// Runs `driver` on the next popup menu; gives up after five seconds. Deleting the returned
// timer stops the wait.
QTimer *whenMenuShown(std::function<void(QMenu *)> driver)
{
    auto *timer = new QTimer(qApp);
    auto tries = std::make_shared<int>(0);
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, timer, [=]() {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        const bool shown = menu && menu->isVisible();
        if (shown || ++*tries > 500) {
            timer->stop();
            timer->deleteLater();
        }
        if (shown)
            driver(menu);
    });
    timer->start();
    return timer;
}

void rightClick(Browser &b, const QPoint &pos)
{
    QWidget *viewport = b.list()->viewport();
    QTest::mouseClick(viewport, Qt::RightButton, {}, pos);
    QContextMenuEvent event(QContextMenuEvent::Mouse, pos, viewport->mapToGlobal(pos));
    QApplication::sendEvent(viewport, &event);
}

// "name|column 1|id" for every row.
QStringList rowSummary(const Browser &b)
{
    QStringList out;
    for (int r = 0; r < b.model()->rowCount(); ++r)
        out << QStringLiteral("%1|%2|%3").arg(b.cell(r, 0), b.cell(r, 1)).arg(b.role(r, Qt::UserRole).toInt());
    return out;
}

} // namespace

class TestPaneUp : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup()
    {
        resetSheetRoutes();
        setEditionCheck({});
    }

    void setUpPerView_data()
    {
        QTest::addColumn<short>("view");
        QTest::addColumn<QStringList>("titles");
        QTest::addColumn<QList<int>>("widths");
        QTest::addColumn<QString>("text");
        QTest::newRow("none") << short(0) << QStringList() << QList<int>() << QString();
        QTest::newRow("NAQC") << short(5) << QStringList{"RuleName", "Comment"} << QList<int>{150, 200} << NaqcText;
        QTest::newRow("WMI") << short(6) << QStringList{"RuleName", "RuleType", "Comment"}
                             << QList<int>{150, 100, 200} << WmiText;
    }

    void setUpPerView()
    {
        QFETCH(short, view);
        QFETCH(QStringList, titles);
        RecordingService s;
        Browser b(view, &s);
        QCOMPARE(headerTitles(b.list()), titles);
        QTEST(headerWidths(b.list()), "widths");
        for (int i = 0; i < titles.size(); ++i)
            QCOMPARE(b.model()->headerData(i, Qt::Horizontal, Qt::TextAlignmentRole).value<Qt::Alignment>()
                         & Qt::AlignHorizontal_Mask,
                     Qt::AlignLeft);
        QTEST(b.up()->description()->toPlainText(), "text");
        QVERIFY(b.up()->description()->isReadOnly());
        QCOMPARE(b.list()->selectionBehavior(), QAbstractItemView::SelectRows);
        QCOMPARE(b.list()->selectionMode(), QAbstractItemView::SingleSelection);
        QCOMPARE(b.down()->category(), view);
        if (view == 0) { // no view type: nothing is loaded
            b.ctrl->RefreshList();
            QVERIFY(s.calls().isEmpty());
        }
    }

    void secondSetUpAddsColumnsInFrontAndTextAtCaret()
    {
        RulesService s;
        Browser b(5, &s);
        b.list()->header()->resizeSection(1, 333); // the user widened "Comment"
        // A new view type alone changes nothing until the host asks, and then only the rows.
        b.ctrl->setViewType(6);
        QCOMPARE(b.model()->rowCount(), 2);
        b.ctrl->RefreshList();
        QCOMPARE(headerTitles(b.list()), QStringList({"RuleName", "Comment"}));
        QCOMPARE(b.cell(1, 1), QStringLiteral("WQL"));

        b.show(6, &s);
        QCOMPARE(headerTitles(b.list()), QStringList({"RuleName", "RuleType", "Comment", "RuleName", "Comment"}));
        QCOMPARE(headerWidths(b.list()), QList<int>({150, 100, 200, 150, 333}));
        QCOMPARE(b.up()->description()->toPlainText(), NaqcText + WmiText);
        // Rows fill the first columns; the older ones stay empty.
        QCOMPARE(rowTexts(b.list(), 0), QStringList({"Antivirus", "WMI", "checks the scanner", "", ""}));

        b.show(6, &s);
        QCOMPARE(b.model()->columnCount(), 8);
        QCOMPARE(b.up()->description()->toPlainText(), NaqcText + WmiText + WmiText);
    }

    void rowsInServiceOrder_data()
    {
        QTest::addColumn<short>("view");
        QTest::addColumn<int>("faultAt");
        QTest::addColumn<QStringList>("rows");
        QTest::addColumn<bool>("lent");
        const QStringList wmi = {"Antivirus|WMI|12", "Free disk|WQL|345", PareFeu + "|WQL|99"};
        QTest::newRow("WMI") << short(6) << -2 << wmi << false;
        // Odd ids convert by their leading digits; long and non-ASCII texts show as sent.
        const QStringList odd = {"Dial-in|quarantine profile|7", "|" + QString(1500, u'x') + "|12",
                                 QString(300, u'N') + "||0", QString::fromUtf8("Удалённый доступ||-3")};
        QTest::newRow("NAQC, odd ids and texts") << short(5) << -2 << odd << false;
        // A fault keeps the rows read so far, a half-read one too. NAQC reads name, comment, id per
        // row; WMI reads wql, name, comment, id; -1 faults on close.
        const QStringList naqc = odd.mid(0, 2);
        QTest::newRow("NAQC, fault at 3rd comment") << short(5) << 7 << odd.mid(0, 3) << false;
        QTest::newRow("NAQC, fault at 3rd name") << short(5) << 6 << naqc << false;
        QTest::newRow("WMI, fault at 2nd kind") << short(6) << 4 << wmi.mid(0, 1) << false;
        QTest::newRow("WMI, fault at 3rd id") << short(6) << 11 << QStringList{wmi[0], wmi[1], PareFeu + "|WQL|0"} << false;
        QTest::newRow("WMI, fault on close") << short(6) << -1 << wmi << false;
        // Texts lent as UTF-8 read the same, to the same faults.
        QTest::newRow("WMI, lent") << short(6) << -2 << wmi << true;
        QTest::newRow("NAQC, odd ids and texts, lent") << short(5) << -2 << odd << true;
        QTest::newRow("NAQC, fault at 3rd name, lent") << short(5) << 6 << naqc << true;
    }

    void rowsInServiceOrder()
    {
        QFETCH(short, view);
        QFETCH(int, faultAt);
        QFETCH(bool, lent);
        RulesService s;
        ScriptedReply reply = view == 6 ? RulesService::wmiList()
                                        : naqcRules({{"Dial-in", "quarantine profile", "000000007"},
                                                     {"", QString(1500, u'x'), "12abc"},
                                                     {QString(300, u'N'), "", "not a number"},
                                                     {QString::fromUtf8("Удалённый доступ"), "", "-3"}});
        reply.faultAtFieldRead = faultAt;
        reply.faultOnClose = faultAt == -1;
        reply.lendsUtf8 = lent;
        s.script(view == 6 ? "GetWMIRules" : "GetRQCRule", reply);
        QList<qint32> faults;
        setFaultReporter([&](const DataServiceError &e) { faults << e.status(); });
        Browser b(view, &s);
        setFaultReporter({});
        QCOMPARE(faults, faultAt == -2 ? QList<qint32>() : QList<qint32>({status::Fail}));
        QCOMPARE(s.signatures(), QStringList{view == 6 ? "GetWMIRules(slot)" : "GetRQCRule(slot)"});
        QTEST(rowSummary(b), "rows");
        for (int r = 0; r < b.model()->rowCount(); ++r) {
            QCOMPARE(b.role(r, images::ImageIndexRole).toInt(), int(view == 6 ? images::WmiRule : images::NaqcRule));
            QCOMPARE(b.role(r, Qt::UserRole).typeId(), QMetaType::Int);
        }
        if (view == 6 && faultAt == -2)
            QCOMPARE(b.cell(0, 2), QStringLiteral("checks the scanner"));
        QCOMPARE(s.rowSets().first()->closed, faultAt == -2);
        QVERIFY(b.list()->selectionModel()->selectedRows().isEmpty());
        b.clickRow(0); // the list stays usable
        QCOMPARE(b.up()->selectionMark(), 0);
        if (faultAt == -2)
            keepScreenshot(b.host.get(), view == 6 ? QStringLiteral("wmi-view") : QStringLiteral("naqc-view"));
    }

    void loadStopsSilently()
    {
        RulesService s;
        MessageCatcher messages;
        // With the user check off the list stays empty and the service is never asked.
        Browser b(6, &s, 0);
        b.ctrl->RefreshList();
        QCOMPARE(b.model()->rowCount(), 0);
        QCOMPARE(b.model()->columnCount(), 3);
        QVERIFY(s.calls().isEmpty());

        b.show(6, &s);
        QCOMPARE(b.model()->rowCount(), 3);
        // A failed call, an unknown name and a reply without a row set all end with the list cleared.
        s.scriptOnce("GetWMIRules", ScriptedReply::failure());
        b.ctrl->RefreshList();
        QCOMPARE(b.model()->rowCount(), 0);
        b.ctrl->RefreshList();
        QCOMPARE(b.model()->rowCount(), 3);
        s.forgetMethod("GetWMIRules");
        b.ctrl->RefreshList();
        QCOMPARE(b.model()->rowCount(), 0);
        s.setKnownMethods(RecordingService::catalogue());
        ScriptedReply noRows;
        noRows.noRowSet = true;
        s.scriptOnce("GetWMIRules", noRows);
        b.ctrl->RefreshList();
        QCOMPARE(b.model()->rowCount(), 0);
        QVERIFY(messages.messages.isEmpty());
    }

    void selectionShowsDetails_data()
    {
        QTest::addColumn<short>("view");
        QTest::addColumn<int>("row");
        QTest::addColumn<QString>("call");
        QTest::addColumn<QString>("heading");
        QTest::newRow("WMI") << short(6) << 0 << "GetWMIRuleInfo(text:000000012, slot)" << "Antivirus";
        QTest::newRow("WQL") << short(6) << 1 << "GetWMIRuleInfo(text:000000345, slot)" << "Free disk";
        QTest::newRow("NAQC") << short(5) << 1 << "GetRQCRuleScriptInfo(text:000000031, slot)" << "VPN";
    }

    void selectionShowsDetails()
    {
        QFETCH(short, view);
        QFETCH(int, row);
        RulesService s;
        Browser b(view, &s);
        s.clear();
        b.clickRow(row);
        QTEST(s.signatures().join(QString()), "call");
        QTEST(b.down()->heading(), "heading");
        QCOMPARE(b.details()->topLevelItemCount(), 1);
        QCOMPARE(b.up()->selectionMark(), row);

        // Moving on with the keyboard shows the next rule and nothing else is asked.
        s.clear();
        b.list()->setFocus();
        QTest::keyClick(b.list(), Qt::Key_Up);
        QCOMPARE(b.up()->selectionMark(), 0);
        QCOMPARE(s.calls().size(), row > 0 ? 1 : 0);
        QCOMPARE(b.down()->heading(), b.cell(0, 0));
        QCOMPARE(b.details()->topLevelItemCount(), 1);
    }

    void deselectionAndFocusOnlyChangeClearDetails()
    {
        RulesService s;
        s.script("GetWMIRuleInfo", conditions({{"x", "", 1, 0, "root\\cimv2", "SELECT * FROM Win32_Process", "#Count",
                                                "uint32", ">", "3"}}));
        Browser b(6, &s);
        b.clickRow(1);
        QCOMPARE(b.details()->topLevelItemCount(), 1);

        // Ctrl-click takes the selection away: the details go, their (WQL) columns stay.
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

    void propertiesFromDoubleClick_data()
    {
        QTest::addColumn<short>("view");
        QTest::addColumn<int>("row");
        QTest::addColumn<QString>("sheet");
        QTest::addColumn<QStringList>("after");
        QTest::newRow("WMI rule") << short(6) << 0 << "wmi Properties 0 1 12"
                                  << QStringList{"GetWMIRules(slot)", "GetWMIRuleInfo(text:000000012, slot)"};
        QTest::newRow("WQL rule") << short(6) << 2 << "wmi Properties 1 1 99"
                                  << QStringList{"GetWMIRules(slot)", "GetWMIRuleInfo(text:000000099, slot)"};
        QTest::newRow("NAQC rule") << short(5) << 0 << "rqc 1 7"
                                   << QStringList{"GetRQCRule(slot)", "GetRQCRuleScriptInfo(text:000000007, slot)"};
    }

    void propertiesFromDoubleClick()
    {
        QFETCH(short, view);
        QFETCH(int, row);
        RulesService s;
        Browser b(view, &s);
        QStringList sheets;
        sheetRoutes().wmi = [&](QWidget *, const WMISheetRequest &r) {
            sheets << QStringLiteral("wmi %1 %2 %3 %4").arg(r.caption).arg(r.wql).arg(r.propertiesMode).arg(r.ruleId);
            return int(SheetDone);
        };
        sheetRoutes().rqc = [&](QWidget *, const RQCSheetRequest &r) {
            sheets << QStringLiteral("rqc %1 %2").arg(r.mode).arg(r.ruleId);
            return int(SheetDone);
        };
        const QString heading = b.cell(row, 0);
        const int rows = b.model()->rowCount();
        b.clickRow(row);
        s.clear();
        QTest::mouseDClick(b.list()->viewport(), Qt::LeftButton, {}, b.rowPoint(row, 1));
        QTEST(sheets.join(QString()), "sheet");
        // Closed with OK: reloaded, nothing selected, the lower pane shows the same rule.
        QTEST(s.signatures(), "after");
        QVERIFY(b.list()->selectionModel()->selectedRows().isEmpty());
        QCOMPARE(b.down()->heading(), heading);
        QCOMPARE(b.details()->topLevelItemCount(), 1);
        QCOMPARE(b.model()->rowCount(), rows);
    }

    void propertiesNeedASelectionAndCancelChangesNothing()
    {
        RulesService s;
        Browser b(6, &s);
        QList<int> ids;
        sheetRoutes().wmi = [&](QWidget *, const WMISheetRequest &r) {
            ids << r.ruleId;
            return int(SheetCancelled);
        };
        QVERIFY(!b.list()->indexAt(b.emptySpace()).isValid());
        QTest::mouseDClick(b.list()->viewport(), Qt::LeftButton, {}, b.emptySpace());
        QVERIFY(ids.isEmpty());

        // Empty space works on the selected row; so does Return.
        b.clickRow(1);
        s.clear();
        QTest::mouseDClick(b.list()->viewport(), Qt::LeftButton, {}, b.emptySpace());
        QTest::keyClick(b.list(), Qt::Key_Return);
        QCOMPARE(ids, QList<int>({345, 345}));
        QVERIFY(s.calls().isEmpty()); // cancelled: no reload
        QCOMPARE(b.up()->selectionMark(), 1);

        setEditionCheck([](qint16, EditionAction action, QWidget *) { return action != EditionAction::Properties; });
        b.up()->openProperties();
        QCOMPARE(ids.size(), 2);
    }

    void contextMenuOnRowAndOnEmptySpace()
    {
        RulesService s;
        Browser b(6, &s);
        s.clear();
        QStringList items;
        QString headingWhileOpen;
        bool shown = false;
        whenMenuShown([&](QMenu *menu) {
            shown = true;
            headingWhileOpen = b.down()->heading();
            for (QAction *a : menu->actions())
                items << (a->isSeparator() ? QStringLiteral("-") : a->text() + (a->isEnabled() ? "" : "(off)"));
            QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(menu->actions().last()).center());
        });
        rightClick(b, b.rowPoint(2, 2));
        QTRY_VERIFY(shown);
        QCOMPARE(items, QStringList({"Properties", "-", "Delete"}));
        QCOMPARE(headingWhileOpen, PareFeu);
        // "Delete" ran on the row the right click selected.
        QTRY_COMPARE(b.model()->rowCount(), 2);
        QVERIFY(s.signatures().contains("DelWMIRule(text:000000099, short:1)"));

        shown = false;
        QPointer<QTimer> waiting = whenMenuShown([&](QMenu *menu) {
            shown = true;
            menu->close();
        });
        rightClick(b, b.emptySpace());
        QTest::qWait(100);
        QVERIFY(!shown);
        delete waiting;

        // From the keyboard the menu opens at the selected row.
        b.clickRow(1);
        b.down()->clear();
        whenMenuShown([&](QMenu *menu) {
            shown = true;
            headingWhileOpen = b.down()->heading();
            menu->close();
        });
        QTest::keyClick(b.list(), Qt::Key_F10, Qt::ShiftModifier);
        QTRY_VERIFY(shown);
        QCOMPARE(headingWhileOpen, QStringLiteral("Free disk"));
    }

    void deleteChecksUsersFirst_data()
    {
        QTest::addColumn<short>("view");
        QTest::addColumn<int>("row");
        QTest::addColumn<QStringList>("users");
        QTest::addColumn<int>("failAt");
        QTest::addColumn<int>("faultAt");
        QTest::addColumn<QStringList>("sent");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QStringList>("left");
        const QStringList wmi = {"Antivirus|WMI|12", "Free disk|WQL|345", PareFeu + "|WQL|99"};
        const QStringList three = {"Office network", QString::fromUtf8("Zweigstelle Süd"), "Lab"};
        const QString used = "RulesUsedExRule(text:Antivirus, short:6, slot)";
        // No question, no reload, no neighbour fetched.
        QTest::newRow("WMI, allowed") << short(6) << 1 << QStringList() << -1 << -1
                                      << QStringList{"RulesUsedExRule(text:Free disk, short:6, slot)",
                                                     "DelWMIRule(text:000000345, short:1)"}
                                      << QString() << QStringList{wmi[0], wmi[2]};
        QTest::newRow("NAQC, allowed") << short(5) << 0 << QStringList() << -1 << -1
                                       << QStringList{"RulesUsedExRule(text:Dial-in, short:5, slot)",
                                                      "DelRQCRule(text:000000007, short:1)"}
                                       << QString() << QStringList{"VPN||31"};
        QTest::newRow("in use") << short(6) << 0 << three << -1 << -1 << QStringList{used}
                                << QString::fromUtf8("Cannot delete the [Antivirus] - because it is being used by the "
                                                     "follow rule(s).\n\n    - Office network\n    - Zweigstelle Süd"
                                                     "\n    - Lab")
                                << wmi;
        // Failures stop silently.
        QTest::newRow("usage check fails")
            << short(6) << 0 << QStringList() << 0 << -1 << QStringList{used} << QString() << wmi;
        QTest::newRow("usage row set faults")
            << short(6) << 0 << three << -1 << 1 << QStringList{used} << QString() << wmi;
        QTest::newRow("delete fails") << short(6) << 0 << QStringList() << 1 << -1
                                      << QStringList{used, "DelWMIRule(text:000000012, short:1)"} << QString() << wmi;
    }

    void deleteChecksUsersFirst()
    {
        QFETCH(short, view);
        QFETCH(int, row);
        QFETCH(QStringList, users);
        QFETCH(int, failAt);
        QFETCH(int, faultAt);
        QFETCH(QString, message);
        RulesService s;
        QList<QVariantList> userRows;
        for (const QString &u : users)
            userRows.append({u});
        ScriptedReply usage = ScriptedReply::table({"rule_name"}, userRows);
        usage.faultAtFieldRead = faultAt;
        s.script("RulesUsedExRule", usage);
        Browser b(view, &s);
        MessageCatcher messages;
        b.clickRow(row);
        s.clear();
        if (failAt >= 0)
            s.failCall(failAt);
        setFaultReporter([](const DataServiceError &) {});
        b.up()->runCommand(CPaneUP::CommandDelete);
        setFaultReporter({});
        QTEST(s.signatures(), "sent");
        QVERIFY(s.rowSets().isEmpty() || s.rowSets().first()->closed || faultAt >= 0);
        QCOMPARE(messages.texts(), message.isEmpty() ? QStringList() : QStringList{message});
        if (!message.isEmpty()) {
            QCOMPARE(messages.messages[0].caption, QStringLiteral("INFO"));
            QCOMPARE(messages.messages[0].icon, ui::MessageIcon::Information);
        }
        QTEST(rowSummary(b), "left");
        if (!message.isEmpty() && !qEnvironmentVariableIsEmpty("QARVO_SCREENSHOT_DIR")) {
            ui::setMessageHandler({}); // what the administrator sees
            whenModalShown([](QWidget *modal) {
                keepScreenshot(modal, QStringLiteral("refused-delete"));
                static_cast<QDialog *>(modal)->accept();
            });
            b.up()->deleteSelectedRule();
        }
        if (failAt >= 0 || faultAt >= 0 || !message.isEmpty())
            return;
        QCOMPARE(b.down()->heading(), QString());
        QCOMPARE(b.details()->topLevelItemCount(), 0);
        // Nothing is selected any more, so a second Delete does nothing.
        s.clear();
        b.up()->deleteSelectedRule();
        QVERIFY(s.calls().isEmpty());
    }

    void emblemPerView()
    {
        RecordingService s;
        Browser b;
        const QRect emblem = CPaneUP::emblemRect();
        QCOMPARE(emblem, QRect(10, 10, 35, 38));
        // Child controls keep clear of the emblem so it is always visible.
        for (QWidget *child : b.up()->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly))
            if (child->isVisible())
                QVERIFY2(!child->geometry().intersects(emblem), qPrintable(child->objectName()));

        const QColor window = b.up()->palette().color(QPalette::Window);
        auto shown = [&] { return b.up()->grab().toImage().convertToFormat(QImage::Format_RGB32).copy(emblem); };
        auto expected = [&](int resource) {
            QImage image(emblem.size(), QImage::Format_RGB32);
            image.fill(window);
            QPainter(&image).drawPixmap(image.rect(), images::bitmap(resource, emblem.size()));
            return image;
        };
        QCOMPARE(shown().pixelColor(17, 19), window);
        b.show(6, &s);
        QCOMPARE(shown(), expected(images::WmiEmblem));
        b.show(5, &s);
        QCOMPARE(shown(), expected(images::NaqcEmblem));
        QVERIFY(expected(images::WmiEmblem) != expected(images::NaqcEmblem));
    }

    void hundredThousandRules()
    {
        constexpr int count = 100000;
        QList<QVariantList> rows;
        rows.reserve(count);
        for (int i = 0; i < count; ++i)
            rows.append({i % 3 == 0 ? 1 : 0, QStringLiteral("Rule %1").arg(i), QStringLiteral("Comment %1").arg(i),
                         ruleIdText(i)});
        RecordingService s;
        s.script("GetWMIRules", wmiRules(rows));
        s.script("GetWMIRuleInfo", conditions({}));
        QStringList expected;
        for (int i = 0; i < count; ++i)
            expected << QStringLiteral("Rule %1|%2|%1").arg(i).arg(i % 3 == 0 ? "WQL" : "WMI");
        Browser b(6, &s);
        QCOMPARE(rowSummary(b), expected);
        QCOMPARE(b.cell(count - 1, 2), QStringLiteral("Comment 99999"));

        b.list()->setFocus();
        b.clickRow(0);
        QTest::keyClick(b.list(), Qt::Key_End);
        QCOMPARE(b.up()->selectionMark(), count - 1);
        QCOMPARE(s.signatures().last(), QStringLiteral("GetWMIRuleInfo(text:000099999, slot)"));
        QCOMPARE(b.details()->columnCount(), 8); // no conditions: the WMI layout

        b.up()->deleteSelectedRule();
        QCOMPARE(b.model()->rowCount(), count - 1);
        b.ctrl->RefreshList();
        QCOMPARE(rowSummary(b), expected); // written into the storage the first load left
    }

    // Texts too long to read are shown cut, everywhere they show; what goes back to the service
    // is the text as it came.
    void overlongTextsShownCutSentWhole_data()
    {
        QTest::addColumn<bool>("lent");
        QTest::newRow("texts") << false;
        QTest::newRow("texts lent as UTF-8") << true;
    }

    void overlongTextsShownCutSentWhole()
    {
        QFETCH(bool, lent);
        const QString name = QString(5000, u'n');
        const QString cut = name.left(4096) + QChar(0x2026);
        // The longest text shown whole, in more bytes than characters.
        const QString comment = QString(4095, u'c') + QChar(0x00e9);
        RecordingService s;
        ScriptedReply list = wmiRules({{0, name, comment, "7"}});
        list.lendsUtf8 = lent;
        s.script("GetWMIRules", list);
        s.script("GetWMIRuleInfo", conditions({{name, "", 0, 0, "root", "C", "F", "string", "=", name}}));
        s.script("RulesUsedExRule", ScriptedReply::table({"rule_name"}, {}));
        Browser b(6, &s);
        QCOMPARE(rowTexts(b.list(), 0), QStringList({cut, "WMI", comment}));
        QCOMPARE(b.model()->index(0, 0).data(Qt::ToolTipRole).toString(), cut);

        b.clickRow(0);
        QCOMPARE(b.down()->heading(), cut);
        QCOMPARE(b.down()->headingFrame()->toolTip(), cut);
        QTreeWidgetItem *condition = b.details()->topLevelItem(0);
        QCOMPARE(condition->text(7), cut);
        QCOMPARE(condition->toolTip(7), cut);
        keepScreenshot(b.host.get(), QStringLiteral("overlong-texts"));

        s.clear();
        b.up()->deleteSelectedRule();
        QCOMPARE(s.signatures().last(), QStringLiteral("DelWMIRule(text:000000007, short:1)"));
        QCOMPARE(std::get<QString>(s.calls().first().args.first()), name);
    }
};

QTEST_MAIN(TestPaneUp)
#include "tst_paneup.moc"
