#pragma once

// The result of "Check Rules…": one row per problem, and what was checked.

#include <QDialog>

namespace qarvo::console {

struct RuleCheck;

class RuleCheckDialog : public QDialog
{
    Q_OBJECT
public:
    explicit RuleCheckDialog(const RuleCheck &check, QWidget *parent = nullptr);
};

} // namespace qarvo::console
