#pragma once

#include <QString>
#include <QStyledItemDelegate>

namespace qarvo {

// Longer than anyone reads in a cell, a caption or a tooltip. Laying out a megabyte of text on
// every paint stalls the whole list, so the panes show such a text cut; they keep the text as the
// service sent it for everything they send back.
inline constexpr qsizetype MaxShownText = 4096;

// `text` itself when it is at most MaxShownText characters long; otherwise its first
// MaxShownText characters (never half a surrogate pair) followed by an ellipsis.
QString shownText(const QString &text);
QString shownText(QStringView text);

// Hands the style no more of a cell's text than the cell's width can show: the style lays out
// every character it is given before it elides, and a cell of thousands of characters would cost
// far more than the cell. The cut falls beyond the cell's edge, so what the cell shows is the
// same.
class CellTextDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;
};

} // namespace qarvo
