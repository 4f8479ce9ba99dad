#include "console/historydialog.h"

#include "console/historytext.h"
#include "console/question.h"
#include "dataservice/calls.h"
#include "resources/ui.h"
#include "rulestore/sqlrulestore.h"

#include <QAbstractTableModel>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QSpinBox>
#include <QSplitter>
#include <QTreeView>
#include <QVBoxLayout>

namespace qarvo::console {

namespace {
constexpr int VersionRole = Qt::UserRole + 1;
const char *const Caption = "Rule History";
} // namespace

// The versions as a table; a history can hold tens of thousands of them.
class HistoryModel : public QAbstractTableModel
{
public:
    using QAbstractTableModel::QAbstractTableModel;

    void setEntries(QList<HistoryEntry> entries)
    {
        beginResetModel();
        m_entries = std::move(entries);
        endResetModel();
    }

    int rowCount(const QModelIndex &parent = {}) const override { return parent.isValid() ? 0 : int(m_entries.size()); }
    int columnCount(const QModelIndex &parent = {}) const override { return parent.isValid() ? 0 : 5; }

    QVariant data(const QModelIndex &index, int role) const override
    {
        const HistoryEntry &e = m_entries.at(index.row());
        if (role == Qt::DisplayRole)
            return historyFields(e).at(index.column());
        if (role == VersionRole)
            return e.version;
        return {};
    }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        static const char *const headers[] = {"Time", "Category", "Id", "Name", "What happened"};
        if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
            return QString::fromLatin1(headers[section]);
        return {};
    }

private:
    QList<HistoryEntry> m_entries;
};

HistoryDialog::HistoryDialog(SqlRuleStore *store, QWidget *parent) : QDialog(parent), m_store(store)
{
    setObjectName(QStringLiteral("historyDialog"));
    setWindowTitle(QString::fromLatin1(Caption));

    m_retention = new QLabel;
    m_retention->setObjectName(QStringLiteral("retentionLabel"));
    m_retention->setWordWrap(true);

    auto *filter = new QLineEdit;
    filter->setObjectName(QStringLiteral("historyFilter"));
    filter->setAccessibleName(QStringLiteral("Filter by rule name"));
    filter->setPlaceholderText(QStringLiteral("Filter by rule name"));
    filter->setClearButtonEnabled(true);

    m_model = new HistoryModel(this);
    m_filter = new QSortFilterProxyModel(this);
    m_filter->setSourceModel(m_model);
    m_filter->setFilterKeyColumn(3);
    m_filter->setFilterCaseSensitivity(Qt::CaseInsensitive);
    connect(filter, &QLineEdit::textChanged, this, [this](const QString &text) {
        m_filter->setFilterFixedString(text);
        if (!m_list->currentIndex().isValid() && m_filter->rowCount() > 0)
            m_list->setCurrentIndex(m_filter->index(0, 0));
    });

    m_list = new QTreeView;
    m_list->setObjectName(QStringLiteral("historyList"));
    m_list->setAccessibleName(QStringLiteral("Earlier versions"));
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->setAllColumnsShowFocus(true);
    m_list->setModel(m_filter);
    m_list->header()->setStretchLastSection(true);
    for (const auto &[column, width] : {std::pair{0, 150}, {1, 70}, {2, 90}, {3, 200}})
        m_list->setColumnWidth(column, width);

    m_content = new QPlainTextEdit;
    m_content->setObjectName(QStringLiteral("versionText"));
    m_content->setAccessibleName(QStringLiteral("Content of the version"));
    m_content->setReadOnly(true);
    m_content->setLineWrapMode(QPlainTextEdit::NoWrap);

    auto *splitter = new QSplitter(Qt::Vertical);
    splitter->addWidget(m_list);
    splitter->addWidget(m_content);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    splitter->setChildrenCollapsible(false);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    m_restore = buttons->addButton(QStringLiteral("&Restore\u2026"), QDialogButtonBox::ActionRole);
    m_restore->setObjectName(QStringLiteral("restoreButton"));
    m_restore->setToolTip(QStringLiteral("Bring the selected version back as a rule"));
    m_purge = buttons->addButton(QStringLiteral("&Purge\u2026"), QDialogButtonBox::ActionRole);
    m_purge->setObjectName(QStringLiteral("purgeButton"));
    m_purge->setToolTip(QStringLiteral("Remove old versions from the history"));
    m_purge->setEnabled(!store->isReadOnly());
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_restore, &QPushButton::clicked, this, &HistoryDialog::restoreSelected);
    connect(m_purge, &QPushButton::clicked, this, &HistoryDialog::purge);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentRowChanged, this, &HistoryDialog::showSelected);
    connect(m_list, &QTreeView::activated, this, &HistoryDialog::restoreSelected);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_retention);
    layout->addWidget(filter);
    layout->addWidget(splitter, 1);
    layout->addWidget(buttons);
    // Close was made first but sits to the right of the other two.
    setTabOrder(m_purge, buttons->button(QDialogButtonBox::Close));

    reload();
    resize(820, 560);
    m_list->setFocus();
}

HistoryDialog::~HistoryDialog() = default;

void HistoryDialog::reload()
{
    const std::optional<QList<HistoryEntry>> entries = m_store->history();
    if (!entries)
        ui::showMessage(this, {QString::fromLatin1(Caption),
                               QStringLiteral("The history cannot be read: %1").arg(m_store->lastError()),
                               ui::MessageIcon::Critical});
    m_model->setEntries(entries.value_or(QList<HistoryEntry>()));
    updateRetention();
    if (m_filter->rowCount() > 0)
        m_list->setCurrentIndex(m_filter->index(0, 0));
    showSelected();
}

void HistoryDialog::updateRetention()
{
    const int days = m_store->historyRetentionDays();
    QString text = days > 0 ? QStringLiteral("Earlier versions of rules, newest first. Versions older than %1 days "
                                             "are removed when a console opens the store.").arg(days)
                            : QStringLiteral("Earlier versions of rules, newest first. Versions are kept until they "
                                             "are purged.");
    if (m_store->isReadOnly())
        text += QStringLiteral(" The rule store is read-only: nothing can be restored or purged.");
    m_retention->setText(text);
}

qint64 HistoryDialog::selectedVersion() const
{
    return m_list->currentIndex().isValid() ? m_list->currentIndex().data(VersionRole).toLongLong() : 0;
}

void HistoryDialog::showSelected()
{
    const qint64 version = selectedVersion();
    m_restore->setEnabled(version > 0 && !m_store->isReadOnly());
    if (version == 0) {
        m_content->clear();
        return;
    }
    const std::optional<RuleSnapshot> rule = m_store->historyVersion(version);
    m_content->setPlainText(rule ? ruleText(*rule)
                                 : QStringLiteral("This version cannot be read: %1").arg(m_store->lastError()));
}

void HistoryDialog::restoreSelected()
{
    using O = RestoreResult::Outcome;
    const qint64 version = selectedVersion();
    if (version == 0 || m_store->isReadOnly())
        return;
    RestoreId idChoice = RestoreId::OldOnly;
    RestoreResult r = m_store->restoreVersion(version, idChoice);
    if (r.outcome == O::IdHeld) {
        const int answer = askOneOfTwo(
            this, QString::fromLatin1(Caption),
            QStringLiteral("%1\n\nReplace it with this version? What the id holds now is kept in the history. "
                           "Or restore this version as a new rule with an id of its own.")
                .arg(r.message),
            QStringLiteral("replaceQuestion"), {QStringLiteral("&Replace")},
            {QStringLiteral("Restore as &New Rule"), QMessageBox::ActionRole}, 1);
        if (answer < 0)
            return;
        idChoice = answer == 0 ? RestoreId::ReplaceHolder : RestoreId::NewIfHeld;
        r = m_store->restoreVersion(version, idChoice);
    }
    while (r.outcome == O::NameTaken) {
        bool ok = false;
        const QString name =
            QInputDialog::getText(this, QString::fromLatin1(Caption),
                                  QStringLiteral("%1 Enter a name for the restored rule:").arg(r.message),
                                  QLineEdit::Normal, r.ruleName + QStringLiteral(" (restored)"), &ok);
        if (!ok)
            return;
        r = m_store->restoreVersion(version, idChoice == RestoreId::OldOnly ? RestoreId::NewIfHeld : idChoice, name);
    }
    if (!r.restored()) {
        ui::showMessage(this, {QString::fromLatin1(Caption),
                               QStringLiteral("The version was not restored: %1").arg(r.message),
                               ui::MessageIcon::Critical});
        return;
    }
    m_changed = true;
    ui::showMessage(this, {QString::fromLatin1(Caption),
                           QStringLiteral("The %1 rule \"%2\" is back under id %3.")
                               .arg(categoryText(r.category), r.ruleName, ruleIdText(r.ruleId)),
                           ui::MessageIcon::Information});
    reload();
}

void HistoryDialog::purge()
{
    const int retention = m_store->historyRetentionDays();
    QDialog dialog(this);
    dialog.setObjectName(QStringLiteral("purgeDialog"));
    dialog.setWindowTitle(QStringLiteral("Purge Rule History"));
    auto *days = new QSpinBox;
    days->setObjectName(QStringLiteral("purgeDays"));
    days->setRange(0, 36500);
    days->setValue(retention > 0 ? retention : 90);
    days->setSuffix(QStringLiteral(" days"));
    days->setSpecialValueText(QStringLiteral("every version"));
    auto *keep = new QCheckBox(QStringLiteral("&Keep doing so whenever a console opens the store"));
    keep->setObjectName(QStringLiteral("keepPurging"));
    keep->setChecked(retention > 0);
    connect(days, &QSpinBox::valueChanged, keep, [keep](int value) { keep->setEnabled(value > 0); });
    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Remove versions &older than:"), days);
    form->addRow(keep);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText(QStringLiteral("&Purge"));
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    auto *layout = new QVBoxLayout(&dialog);
    layout->addLayout(form);
    layout->addWidget(buttons);
    if (dialog.exec() != QDialog::Accepted)
        return;

    const int removed = m_store->purgeHistory(days->value());
    if (removed < 0 || !m_store->setHistoryRetentionDays(keep->isChecked() ? days->value() : 0)) {
        ui::showMessage(this, {QStringLiteral("Purge Rule History"),
                               QStringLiteral("The history was not purged: %1").arg(m_store->lastError()),
                               ui::MessageIcon::Critical});
        return;
    }
    m_changed = m_changed || removed > 0;
    reload();
}

} // namespace qarvo::console
