#include "console/usagedialog.h"

#include "dataservice/calls.h"
#include "resources/images.h"
#include "rulestore/sqlrulestore.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace qarvo::console {

namespace {

constexpr int CategoryRole = Qt::UserRole + 1;
constexpr int IdRole = Qt::UserRole + 2;
constexpr int NameRole = Qt::UserRole + 3;

void fill(SqlRuleStore *store, QComboBox *user, QComboBox *used)
{
    auto add = [&](qint16 cat, const QString &name, const QString &kind, const QString &id) {
        for (QComboBox *box : {user, used}) {
            box->addItem(images::icon(cat == category::NAQC ? images::NaqcRule : images::WmiRule),
                         QStringLiteral("%1 (%2)").arg(name, kind));
            const int row = box->count() - 1;
            box->setItemData(row, int(cat), CategoryRole);
            box->setItemData(row, id, IdRole);
            box->setItemData(row, name, NameRole);
        }
    };
    guardAction([&] {
        Reply wmi = calls::GetWMIRules(store);
        if (!wmi.failed()) {
            forEachRow(wmi, [&](RowReader &r) {
                const bool wql = r.integer(QStringLiteral("rule_wql")) != 0;
                add(category::WMI, r.text(QStringLiteral("rule_name")),
                    wql ? QStringLiteral("WQL") : QStringLiteral("WMI"), r.text(QStringLiteral("rule_id")));
            });
        }
        Reply naqc = calls::GetRQCRule(store);
        if (!naqc.failed()) {
            forEachRow(naqc, [&](RowReader &r) {
                add(category::NAQC, r.text(QStringLiteral("rule_name")), QStringLiteral("NAQC"),
                    r.text(QStringLiteral("rule_id")));
            });
        }
    });
}

} // namespace

UsageDialog::UsageDialog(SqlRuleStore *store, QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("usageDialog"));
    setWindowTitle(QStringLiteral("Add Rule Reference"));

    auto *note = new QLabel(QStringLiteral("A rule that is used by another cannot be deleted "
                                           "from the list until the reference is gone."));
    note->setWordWrap(true);
    m_user = new QComboBox;
    m_user->setObjectName(QStringLiteral("userCombo"));
    m_user->setToolTip(QStringLiteral("The rule that refers to another"));
    m_used = new QComboBox;
    m_used->setObjectName(QStringLiteral("usedCombo"));
    m_used->setToolTip(QStringLiteral("The rule it refers to by name"));
    fill(store, m_user, m_used);
    if (m_used->count() > 1)
        m_used->setCurrentIndex(1);

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("&Rule:"), m_user);
    form->addRow(QStringLiteral("&Uses:"), m_used);

    m_buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    m_buttons->setObjectName(QStringLiteral("buttons"));
    connect(m_buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(note);
    layout->addLayout(form);
    layout->addWidget(m_buttons);

    connect(m_user, &QComboBox::currentIndexChanged, this, &UsageDialog::updateOk);
    connect(m_used, &QComboBox::currentIndexChanged, this, &UsageDialog::updateOk);
    updateOk();
    resize(420, sizeHint().height());
}

void UsageDialog::updateOk()
{
    // A rule cannot use itself; nothing to choose, nothing to store.
    const bool ok = m_user->currentIndex() >= 0 && m_used->currentIndex() >= 0
        && m_user->currentIndex() != m_used->currentIndex();
    m_buttons->button(QDialogButtonBox::Ok)->setEnabled(ok);
}

qint16 UsageDialog::userCategory() const { return qint16(m_user->currentData(CategoryRole).toInt()); }
QString UsageDialog::userId() const { return m_user->currentData(IdRole).toString(); }
QString UsageDialog::userName() const { return m_user->currentData(NameRole).toString(); }
qint16 UsageDialog::usedCategory() const { return qint16(m_used->currentData(CategoryRole).toInt()); }
QString UsageDialog::usedName() const { return m_used->currentData(NameRole).toString(); }

} // namespace qarvo::console
