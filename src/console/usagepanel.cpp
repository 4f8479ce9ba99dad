#include "console/usagepanel.h"

#include "dataservice/methods.h"
#include "resources/images.h"
#include "resources/ui.h"
#include "rulestore/sqlrulestore.h"

#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

namespace qarvo::console {

namespace {

constexpr int CategoryRole = Qt::UserRole + 1;
constexpr const char *Caption = "qarvo console";

QString categoryName(qint16 cat)
{
    return cat == category::NAQC ? QStringLiteral("NAQC") : QStringLiteral("WMI");
}

void fill(QListWidget *list, const QList<RuleSnapshot::Link> &links, const QString &none)
{
    list->clear();
    for (const RuleSnapshot::Link &l : links) {
        auto *item = new QListWidgetItem(images::icon(l.category == category::NAQC ? images::NaqcRule : images::WmiRule),
                                         QStringLiteral("%1 (%2)").arg(l.name, categoryName(l.category)), list);
        item->setData(Qt::UserRole, l.name);
        item->setData(CategoryRole, int(l.category));
    }
    if (links.isEmpty()) {
        auto *item = new QListWidgetItem(none, list);
        item->setFlags(Qt::NoItemFlags);
    }
}

QListWidget *makeList(const char *name, const QString &accessible)
{
    auto *list = new QListWidget;
    list->setObjectName(QLatin1String(name));
    list->setAccessibleName(accessible);
    list->setUniformItemSizes(true);
    return list;
}

} // namespace

RuleUsageDialog::RuleUsageDialog(SqlRuleStore *store, qint16 category, int ruleId, QWidget *parent)
    : QDialog(parent), m_store(store), m_category(category), m_ruleId(ruleId)
{
    setObjectName(QStringLiteral("ruleUsageDialog"));
    setWindowTitle(QStringLiteral("Rule Usage"));
    m_title = new QLabel;
    m_title->setObjectName(QStringLiteral("usageTitle"));
    m_title->setWordWrap(true);
    m_usedBy = makeList("usedByList", QStringLiteral("Rules that use this rule"));
    m_uses = makeList("usesList", QStringLiteral("Rules this rule uses"));
    auto *usedByLabel = new QLabel(QStringLiteral("&Used by (keeps it from being deleted):"));
    usedByLabel->setBuddy(m_usedBy);
    auto *usesLabel = new QLabel(QStringLiteral("U&ses:"));
    usesLabel->setBuddy(m_uses);

    m_remove = new QPushButton(QStringLiteral("&Remove Rule Reference…"));
    m_remove->setObjectName(QStringLiteral("removeReferenceButton"));
    m_remove->setToolTip(QStringLiteral("End the selected reference; Add Rule Reference brings it back"));
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    buttons->addButton(m_remove, QDialogButtonBox::ActionRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_remove, &QPushButton::clicked, this, &RuleUsageDialog::removeReference);

    auto *grid = new QGridLayout;
    grid->addWidget(usedByLabel, 0, 0);
    grid->addWidget(usesLabel, 0, 1);
    grid->addWidget(m_usedBy, 1, 0);
    grid->addWidget(m_uses, 1, 1);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_title);
    layout->addLayout(grid);
    layout->addWidget(buttons);

    // One selection across both lists: the button acts on the reference last picked.
    for (QListWidget *list : {m_usedBy, m_uses}) {
        connect(list, &QListWidget::itemSelectionChanged, this, [this, list] { updateButton(list); });
    }
    reload();
    resize(560, 320);
}

void RuleUsageDialog::reload()
{
    const std::optional<RuleSnapshot> rule = m_store->rule(m_category, ruleIdText(m_ruleId));
    if (!rule || !rule->hasRule) {
        m_title->setText(QStringLiteral("The rule is no longer in the store."));
        m_usedBy->clear();
        m_uses->clear();
    } else {
        m_name = rule->name;
        m_title->setText(QStringLiteral("References of the %1 rule \"%2\":").arg(categoryName(m_category), m_name));
        fill(m_usedBy, rule->usedBy, QStringLiteral("(no rule uses it)"));
        fill(m_uses, rule->uses, QStringLiteral("(it uses no rule)"));
    }
    m_remove->setEnabled(false);
}

void RuleUsageDialog::updateButton(QListWidget *selectedIn)
{
    if (!selectedIn->selectedItems().isEmpty()) {
        QListWidget *other = selectedIn == m_usedBy ? m_uses : m_usedBy;
        const QSignalBlocker block(other);
        other->clearSelection();
    }
    m_remove->setEnabled(!m_usedBy->selectedItems().isEmpty() || !m_uses->selectedItems().isEmpty());
}

void RuleUsageDialog::removeReference()
{
    const bool fromUser = !m_usedBy->selectedItems().isEmpty();
    QListWidgetItem *item = fromUser ? m_usedBy->selectedItems().constFirst()
                                     : (m_uses->selectedItems().isEmpty() ? nullptr : m_uses->selectedItems().constFirst());
    if (!item)
        return;
    const QString other = item->data(Qt::UserRole).toString();
    const auto otherCategory = qint16(item->data(CategoryRole).toInt());
    const QString user = fromUser ? other : m_name;
    const QString used = fromUser ? m_name : other;
    if (QMessageBox::question(this, QStringLiteral("Remove Rule Reference"),
                              QStringLiteral("Remove the reference of \"%1\" to \"%2\"? \"%2\" can then be "
                                             "deleted while \"%1\" still names it.")
                                  .arg(user, used))
        != QMessageBox::Yes)
        return;
    // The store knows a user by id: look the other rule's id up when it is the user.
    QString userId = ruleIdText(m_ruleId);
    if (fromUser) {
        const std::optional<QList<RuleSnapshot>> all = m_store->allRules();
        for (const RuleSnapshot &r : all.value_or(QList<RuleSnapshot>{})) {
            if (r.category == otherCategory && r.name == other)
                userId = ruleIdText(r.id);
        }
    }
    const qint32 s = m_store->removeRuleUsage(fromUser ? otherCategory : m_category, userId,
                                              fromUser ? m_category : otherCategory, used);
    if (failed(s)) {
        ui::showMessage(this, {QString::fromLatin1(Caption),
                               QStringLiteral("The reference was not removed: %1").arg(m_store->lastError()),
                               ui::MessageIcon::Critical});
    }
    reload();
}

} // namespace qarvo::console
