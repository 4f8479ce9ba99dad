#pragma once

// The OK and Cancel buttons every condition dialog ends with: OK is the default button, Cancel
// never takes Enter, and both keep the objectNames keyboard and test drivers look for.

#include <QDialog>
#include <QPushButton>

#include <utility>

namespace qarvo {

inline std::pair<QPushButton *, QPushButton *> makeOkCancel(QDialog *dialog)
{
    auto *ok = new QPushButton(QStringLiteral("OK"), dialog);
    ok->setObjectName(QStringLiteral("okButton"));
    ok->setDefault(true);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"), dialog);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    cancel->setAutoDefault(false);
    QObject::connect(ok, &QPushButton::clicked, dialog, &QDialog::accept);
    QObject::connect(cancel, &QPushButton::clicked, dialog, &QDialog::reject);
    return {ok, cancel};
}

} // namespace qarvo
