#include "browserfixture.h"

#include <QPlainTextEdit>
#include <QSplitterHandle>

using namespace qarvo;
using namespace qarvo::test;

namespace {

// Drags the bar with the mouse so that its top edge ends at `barTop` in splitter coordinates.
void dragBar(CMySplitterWnd *splitter, int barTop)
{
    QSplitterHandle *bar = splitter->handle(1);
    const QPoint grip(bar->width() / 2, 0);
    auto send = [&](QEvent::Type type, const QPoint &inSplitter, Qt::MouseButton button,
                    Qt::MouseButtons buttons) {
        const QPoint global = splitter->mapToGlobal(inSplitter);
        QMouseEvent event(type, bar->mapFromGlobal(global), global, button, buttons, Qt::NoModifier);
        QApplication::sendEvent(bar, &event);
    };
    const QPoint start = bar->geometry().topLeft() + grip;
    send(QEvent::MouseButtonPress, start, Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseMove, QPoint(start.x(), barTop), Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, QPoint(start.x(), barTop), Qt::LeftButton, Qt::NoButton);
}

void checkPanes(Browser &b, int row)
{
    CMySplitterWnd *splitter = b.dialog()->splitter();
    const int w = splitter->width(), h = splitter->height();
    QCOMPARE(splitter->rowHeight(), row);
    QCOMPARE(b.up()->geometry(), QRect(0, 0, w, row + 3));
    QCOMPARE(b.down()->geometry(), QRect(0, row + 9, w, h - row - 9));
}

} // namespace

class TestSplitView : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void correctionRule_data()
    {
        QTest::addColumn<int>("row");
        QTest::addColumn<int>("client");
        QTest::addColumn<int>("corrected");
        QTest::newRow("fits") << 300 << 600 << 300;
        QTest::newRow("both exactly at minimum") << 100 << 200 << 100;
        QTest::newRow("upper too low") << 99 << 600 << 100;
        QTest::newRow("upper zero") << 0 << 600 << 100;
        QTest::newRow("lower too low") << 520 << 600 << 500;
        QTest::newRow("lower just too low") << 501 << 600 << 500;
        QTest::newRow("area too low, upper") << 40 << 150 << 100;   // one correction, no second
        QTest::newRow("area too low, lower") << 120 << 150 << 50;
    }

    void correctionRule()
    {
        QFETCH(int, row);
        QFETCH(int, client);
        QFETCH(int, corrected);
        QCOMPARE(CMySplitterWnd::correctedRowHeight(row, client), corrected);
    }

    void draggingKeepsBothMinimums()
    {
        Browser b(QSize(700, 640));
        CMySplitterWnd *splitter = b.dialog()->splitter();

        // A fresh view starts with a 300-pixel row, list above and details below.
        QCOMPARE(splitter->size(), QSize(700, 640));
        QCOMPARE(splitter->orientation(), Qt::Vertical);
        QCOMPARE(splitter->widget(0), b.up());
        QCOMPARE(splitter->widget(1), b.down());
        checkPanes(b, 300);
        // Where the bar's top edge is dropped, and the row that results.
        const QList<std::pair<int, int>> drops = {{253, 250}, {63, 100}, {3, 100}, {600, 540}, {543, 540}, {544, 540}};
        for (const auto &[barTop, row] : drops) {
            dragBar(splitter, barTop);
            checkPanes(b, row);
        }
    }

    void resizingKeepsTheUpperRow()
    {
        Browser b(QSize(700, 640));
        b.ctrl->resize(900, 800);
        QTRY_COMPARE(b.dialog()->splitter()->height(), 800);
        checkPanes(b, 300);
        // Too low for the lower row: row 0 gives way.
        b.ctrl->resize(900, 350);
        QTRY_COMPARE(b.dialog()->splitter()->height(), 350);
        checkPanes(b, 250);
        b.ctrl->resize(900, 800);
        QTRY_COMPARE(b.dialog()->splitter()->height(), 800);
        checkPanes(b, 250);
    }

    void tooLowAreaIsCorrectedOnce()
    {
        Browser b(QSize(500, 600));
        CMySplitterWnd *splitter = b.dialog()->splitter();
        b.ctrl->resize(500, 150);
        QTRY_COMPARE(splitter->height(), 150);
        // One correction for this layout only; the user's row height survives the squeeze.
        QCOMPARE(b.up()->height(), 50 + 3);
        QCOMPARE(splitter->rowHeight(), 300);
        dragBar(splitter, 10);
        QCOMPARE(b.up()->height(), 100 + 3);
        QCOMPARE(b.down()->height(), 150 - 100 - 9);

        b.ctrl->resize(500, 0);
        b.ctrl->resize(500, 5);
        QTRY_COMPARE(splitter->height(), 5);
        b.ctrl->resize(500, 600);
        QTRY_COMPARE(splitter->height(), 600);
        QVERIFY(splitter->rowHeight() >= 100);
        QVERIFY(splitter->height() - splitter->rowHeight() >= 100);
    }

    void tabOrderThroughBothPanes()
    {
        Browser b;
        b.host->activateWindow();
        b.up()->description()->setFocus();
        QTRY_VERIFY(b.up()->description()->hasFocus());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget *>(b.list()));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget *>(b.details()));
    }
};

QTEST_MAIN(TestSplitView)
#include "tst_splitview.moc"
