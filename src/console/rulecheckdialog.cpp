#include "console/rulecheckdialog.h"

#include "console/rulecheck.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace qarvo::console {

RuleCheckDialog::RuleCheckDialog(const RuleCheck &check, QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("ruleCheckDialog"));
    setWindowTitle(QStringLiteral("Check Rules"));

    QString summary = summaryLine(check);
    if (!check.catalogueFound)
        summary += QStringLiteral(" No WMI class catalogue was found, so only the WQL syntax was checked.");
    auto *label = new QLabel(summary, this);
    label->setObjectName(QStringLiteral("checkSummary"));
    label->setWordWrap(true);

    auto *list = new QTableWidget(int(check.problems.size()), 3, this);
    list->setObjectName(QStringLiteral("checkList"));
    list->setAccessibleName(QStringLiteral("Problems found"));
    list->setHorizontalHeaderLabels({QStringLiteral("Rule"), QStringLiteral("Id"), QStringLiteral("Problem")});
    list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    list->setSelectionBehavior(QAbstractItemView::SelectRows);
    list->setAlternatingRowColors(true);
    list->setShowGrid(false);
    list->verticalHeader()->hide();
    // Problems are sentences: they wrap, and each row is as tall as its text.
    list->setWordWrap(true);
    list->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    list->horizontalHeader()->setStretchLastSection(true);
    list->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    for (int row = 0; row < list->rowCount(); ++row) {
        const RuleProblem &p = check.problems[row];
        list->setItem(row, 0, new QTableWidgetItem(p.ruleName));
        list->setItem(row, 1, new QTableWidgetItem(p.ruleId));
        list->setItem(row, 2, new QTableWidgetItem(p.text));
    }
    list->resizeColumnToContents(0);
    list->resizeColumnToContents(1);
    list->setEnabled(!check.problems.isEmpty());

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(list, 1);
    layout->addWidget(buttons);
    resize(760, 360);
}

} // namespace qarvo::console
