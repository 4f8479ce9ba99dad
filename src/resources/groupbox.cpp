#include "resources/groupbox.h"

#include <QPainter>

namespace qarvo {

CGroupBox::CGroupBox(QWidget *parent) : CGroupBox(QString(), parent) {}

CGroupBox::CGroupBox(const QString &title, QWidget *parent) : QGroupBox(title, parent)
{
    QFont f = font();
    f.setFamily(QStringLiteral("Tohoma"));
    f.setBold(true);
    setFont(f);
}

void CGroupBox::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    const QFontMetrics fm(font());
    const int captionHeight = fm.height();
    const QRect frame = rect().adjusted(0, captionHeight / 2, -1, -1);
    p.setPen(palette().color(QPalette::Mid));
    p.drawRect(frame);
    if (title().isEmpty())
        return;
    const QString caption = fm.elidedText(title(), Qt::ElideRight, qMax(0, width() - 24));
    const QRect textRect(8, 0, fm.horizontalAdvance(caption) + 8, captionHeight);
    p.fillRect(textRect, palette().window());
    p.setPen(palette().color(QPalette::WindowText));
    p.drawText(textRect, Qt::AlignCenter, caption);
}

} // namespace qarvo
