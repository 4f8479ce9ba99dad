#include "console/question.h"

#include <QPushButton>

namespace qarvo::console {

int askOneOfTwo(QWidget *parent, const QString &caption, const QString &text, const QString &objectName,
                const Answer &first, const Answer &second, int defaultAnswer)
{
    QMessageBox box(QMessageBox::Question, caption, text, QMessageBox::Cancel, parent);
    box.setObjectName(objectName);
    QPushButton *buttons[] = {box.addButton(first.text, first.role), box.addButton(second.text, second.role)};
    box.setDefaultButton(buttons[defaultAnswer == 1 ? 1 : 0]);
    box.exec();
    for (int i = 0; i < 2; ++i) {
        if (box.clickedButton() == buttons[i])
            return i;
    }
    return -1;
}

} // namespace qarvo::console
