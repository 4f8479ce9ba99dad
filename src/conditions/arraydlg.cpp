#include "conditions/arraydlg.h"

#include "conditions/okcancel.h"
#include "resources/strings.h"
#include "resources/ui.h"

#include <QDialogButtonBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace qarvo {

QStringList splitArrayText(const QString &text)
{
    return text.split(u',');
}

QString joinArrayValues(const QStringList &values)
{
    return values.join(u',');
}

// ---- CArrayInputDlg ----------------------------------------------------------------------------

CArrayInputDlg::CArrayInputDlg(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Input Data"));
    setObjectName(QStringLiteral("CArrayInputDlg"));

    auto *label = new QLabel(QStringLiteral("&Value"), this);
    m_value = new QLineEdit(this);
    m_value->setObjectName(QStringLiteral("valueEdit"));
    label->setBuddy(m_value);

    auto *buttons = new QDialogButtonBox(this);
    const auto [ok, cancel] = makeOkCancel(this);
    buttons->addButton(ok, QDialogButtonBox::AcceptRole);
    buttons->addButton(cancel, QDialogButtonBox::RejectRole);

    auto *row = new QHBoxLayout;
    row->addWidget(label);
    row->addWidget(m_value, 1);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(row);
    layout->addWidget(buttons);
    resize(300, sizeHint().height());
}

QString CArrayInputDlg::value() const
{
    return m_value->text();
}

void CArrayInputDlg::accept()
{
    if (m_value->text().isEmpty()) {
        ui::info(this, strings::ArrayValueEmpty);
        m_value->setFocus();
        return;
    }
    QDialog::accept();
}

// ---- CArrayDlg ---------------------------------------------------------------------------------

CArrayDlg::CArrayDlg(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Array Properties"));
    setObjectName(QStringLiteral("CArrayDlg"));

    m_list = new QTableWidget(0, 2, this);
    m_list->setObjectName(QStringLiteral("arrayList"));
    m_list->setAccessibleName(QStringLiteral("Values of the array"));
    m_list->setHorizontalHeaderLabels({QStringLiteral("Num"), QStringLiteral("Value")});
    m_list->setColumnWidth(0, 50);
    m_list->setColumnWidth(1, 150);
    m_list->horizontalHeader()->setStretchLastSection(false);
    m_list->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    m_list->horizontalHeader()->setHighlightSections(false);
    m_list->verticalHeader()->hide();
    m_list->verticalHeader()->setDefaultSectionSize(m_list->fontMetrics().height() + 6);
    m_list->setShowGrid(true);
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setWordWrap(false);
    m_list->viewport()->installEventFilter(this);

    m_add = new QPushButton(QStringLiteral("Add"), this);
    m_add->setObjectName(QStringLiteral("addButton"));
    m_add->setAutoDefault(false);
    m_add->setToolTip(QStringLiteral("Append a value at the end of the list"));
    m_del = new QPushButton(QStringLiteral("Del"), this);
    m_del->setObjectName(QStringLiteral("delButton"));
    m_del->setAutoDefault(false);
    m_del->setToolTip(QStringLiteral("Remove the selected value"));
    m_del->setEnabled(false);
    connect(m_add, &QPushButton::clicked, this, &CArrayDlg::addValue);
    connect(m_del, &QPushButton::clicked, this, &CArrayDlg::deleteSelected);
    // Moving onto a row with the keyboard counts like clicking it.
    connect(m_list, &QTableWidget::currentCellChanged, this, [this](int row) {
        if (m_list->hasFocus())
            m_del->setEnabled(row >= 0);
    });

    auto *buttons = new QDialogButtonBox(this);
    const auto [ok, cancel] = makeOkCancel(this);
    buttons->addButton(ok, QDialogButtonBox::AcceptRole);
    buttons->addButton(cancel, QDialogButtonBox::RejectRole);

    auto *side = new QVBoxLayout;
    side->addWidget(m_add);
    side->addWidget(m_del);
    side->addStretch(1);
    auto *top = new QHBoxLayout;
    top->addWidget(m_list, 1);
    top->addLayout(side);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(top, 1);
    layout->addWidget(buttons);
    resize(320, 260);
}

void CArrayDlg::setArrayText(const QString &text, bool hasInitialContent)
{
    m_text = text;
    m_list->setRowCount(0);
    m_del->setEnabled(false);
    if (!hasInitialContent)
        return;
    for (const QString &value : splitArrayText(text))
        appendRow(value);
}

QStringList CArrayDlg::values() const
{
    QStringList out;
    for (int row = 0; row < m_list->rowCount(); ++row)
        out << m_list->item(row, 1)->text();
    return out;
}

void CArrayDlg::appendRow(const QString &value)
{
    const int row = m_list->rowCount();
    m_list->insertRow(row);
    m_list->setItem(row, 0, new QTableWidgetItem(QString::number(row + 1)));
    m_list->setItem(row, 1, new QTableWidgetItem(value));
}

void CArrayDlg::addValue()
{
    CArrayInputDlg input(this);
    if (input.exec() == QDialog::Accepted)
        appendRow(input.value());
}

void CArrayDlg::deleteSelected()
{
    const int row = m_list->currentRow();
    if (row < 0)
        return;
    m_list->removeRow(row);
    for (int r = row; r < m_list->rowCount(); ++r)
        m_list->item(r, 0)->setText(QString::number(r + 1));
    // Nothing stays selected, so a second press cannot take away a row the user never chose.
    m_list->clearSelection();
    m_list->setCurrentCell(-1, -1);
    m_del->setEnabled(false);
}

bool CArrayDlg::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_list->viewport() && event->type() == QEvent::MouseButtonPress) {
        const auto *mouse = static_cast<QMouseEvent *>(event);
        const QModelIndex hit = m_list->indexAt(mouse->position().toPoint());
        m_del->setEnabled(hit.isValid());
        if (!hit.isValid()) {
            m_list->clearSelection();
            m_list->setCurrentCell(-1, -1);
        }
    }
    return QDialog::eventFilter(watched, event);
}

void CArrayDlg::accept()
{
    m_text = joinArrayValues(values());
    QDialog::accept();
}

} // namespace qarvo
