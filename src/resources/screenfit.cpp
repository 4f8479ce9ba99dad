#include "resources/screenfit.h"

#include <QApplication>
#include <QEvent>
#include <QLayout>
#include <QScreen>
#include <QStyle>
#include <QWidget>

namespace qarvo::ui {

QRect fittedGeometry(const QRect &window, const QMargins &frame, const QRect &available)
{
    const QRect room = available.marginsRemoved(frame);
    QRect r(window.topLeft(), window.size().boundedTo(room.size()));
    if (r.right() > room.right())
        r.moveRight(room.right());
    if (r.bottom() > room.bottom())
        r.moveBottom(room.bottom());
    if (r.left() < room.left())
        r.moveLeft(room.left());
    if (r.top() < room.top())
        r.moveTop(room.top());
    return r;
}

namespace {

class ScreenFit : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Show && watched->isWidgetType())
            fit(static_cast<QWidget *>(watched));
        return false;
    }

private:
    static void fit(QWidget *w)
    {
        const Qt::WindowType type = w->windowType();
        if (!w->isWindow() || (type != Qt::Window && type != Qt::Dialog))
            return;
        QScreen *screen = w->screen();
        if (!screen)
            return;
        // Before the first show the window manager's frame is unknown; a title bar is the
        // least it will add.
        QMargins frame(w->geometry().left() - w->frameGeometry().left(),
                       w->geometry().top() - w->frameGeometry().top(),
                       w->frameGeometry().right() - w->geometry().right(),
                       w->frameGeometry().bottom() - w->geometry().bottom());
        if (frame.isNull())
            frame.setTop(w->style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, w));
        const QRect fitted = fittedGeometry(w->geometry(), frame, screen->availableGeometry());
        if (fitted == w->geometry())
            return;
        // A layout's minimum would keep the window from shrinking; on a screen this small the
        // controls share what room there is instead.
        if (w->layout())
            w->layout()->activate();
        if (w->minimumWidth() > fitted.width() || w->minimumHeight() > fitted.height())
            w->setMinimumSize(w->minimumSize().boundedTo(fitted.size()));
        w->setGeometry(fitted);
    }
};

} // namespace

void fitWindowsToScreen()
{
    static ScreenFit *installed = nullptr;
    if (installed || !qApp)
        return;
    installed = new ScreenFit(qApp);
    qApp->installEventFilter(installed);
}

} // namespace qarvo::ui
