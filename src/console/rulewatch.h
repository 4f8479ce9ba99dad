#pragma once

// The control tells its host nothing about what a delete from its list or a property sheet did;
// the console learns it from the calls the control makes to the store, passed through here.

#include <qarvo/dataservice/dataservice.h>

#include <QString>

#include <functional>
#include <optional>

namespace qarvo {
class SqlRuleStore;
}

namespace qarvo::console {

struct RuleChange
{
    enum class Kind { Deleted, Saved };
    Kind kind = Kind::Deleted;
    qint16 category = 0;
    QString ruleId;
    QString oldName;
    QString name; // Saved: the name it carries now
};

class RuleWatch : public DataService
{
public:
    // Calls go to `inner`; names are looked up in `store`. Both must outlive the watch.
    RuleWatch(SqlRuleStore *store, DataService *inner);

    Reply call(const QString &method, const ArgList &args) override;

    std::function<void(const RuleChange &)> onChange;

private:
    QString nameOf(qint16 category, const QString &ruleId);

    SqlRuleStore *m_store;
    DataService *m_inner;
    // A property sheet deletes the rule and stores it again; what it became is known once the
    // control loads its list afterwards.
    std::optional<RuleChange> m_pendingSave;
    QString m_renamedFrom;
};

} // namespace qarvo::console
