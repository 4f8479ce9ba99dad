#include "browser/shorttext.h"

#include "dataservice/recordsizes.h"

#include <QFontMetrics>
#include <QStyleOptionViewItem>

namespace qarvo {

QString shownText(const QString &text)
{
    if (text.size() <= MaxShownText)
        return text;
    return fitRecordText(text, MaxShownText + 1) + QChar(0x2026);
}

QString shownText(QStringView text)
{
    // Cut before it is copied: the text may be a megabyte long.
    if (text.size() <= MaxShownText)
        return text.toString();
    return shownText(text.first(MaxShownText + 1).toString());
}

void CellTextDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    QString &text = option->text;
    const int width = qMax(option->rect.width(), 0);
    // A visible character is at least a pixel wide, so a cell never shows more characters than
    // it has pixels ...
    qsizetype room = qsizetype(width) + 1;
    if (text.size() <= room)
        return;
    // ... and mostly far fewer: a prefix already wider than the cell ends the text as well.
    const QFontMetrics metrics(option->font);
    const qsizetype guess = qMin(room, qsizetype(3 * width / (2 * qMax(1, metrics.averageCharWidth()))) + 1);
    if (metrics.horizontalAdvance(text.first(guess)) > width)
        room = guess;
    if (text.at(room - 1).isHighSurrogate())
        --room;
    text.truncate(room);
}

} // namespace qarvo
