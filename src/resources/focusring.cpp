#include "resources/focusring.h"

#include <QApplication>
#include <QEvent>
#include <QFocusFrame>
#include <QPointer>
#include <QWidget>

namespace qarvo::ui {

namespace {

class FocusRing : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::FocusIn && watched->isWidgetType())
            follow(static_cast<QWidget *>(watched));
        return false;
    }

private:
    void follow(QWidget *w)
    {
        // The edit inside a combo or spin box takes the focus for its owner; the ring goes around
        // the whole control.
        while (w->parentWidget() && !w->isWindow() && w->parentWidget()->focusProxy() == w)
            w = w->parentWidget();
        const bool marked = !w->isWindow() && (w->focusPolicy() & Qt::TabFocus)
                            && w->window()->windowType() != Qt::Popup;
        if (!marked) {
            if (m_frame)
                m_frame->setWidget(nullptr);
            return;
        }
        // The frame lives among the controls of the window it marks and goes with that window.
        if (!m_frame) {
            m_frame = new QFocusFrame(w);
            m_frame->setObjectName(QStringLiteral("keyboardFocusRing"));
            QPalette ring = m_frame->palette();
            ring.setColor(QPalette::WindowText, ring.color(QPalette::Active, QPalette::Highlight));
            m_frame->setPalette(ring);
        }
        m_frame->setWidget(w);
    }

    QPointer<QFocusFrame> m_frame;
};

} // namespace

void showKeyboardFocus()
{
    static FocusRing *installed = nullptr;
    if (installed || !qApp)
        return;
    installed = new FocusRing(qApp);
    qApp->installEventFilter(installed);
}

} // namespace qarvo::ui
