#pragma once

#include <QMessageBox>
#include <QString>

class QWidget;

namespace qarvo::console {

// One of two answers to a question the console asks, or neither when the user cancels.
struct Answer
{
    QString text;
    QMessageBox::ButtonRole role = QMessageBox::AcceptRole;
};

// Asks with the two answers and Cancel; `objectName` lets tests find the box. Answers 0 or 1 for
// the answer chosen, -1 for Cancel or a closed box.
int askOneOfTwo(QWidget *parent, const QString &caption, const QString &text, const QString &objectName,
                const Answer &first, const Answer &second, int defaultAnswer);

} // namespace qarvo::console
