#pragma once

#include <QGroupBox>

namespace qarvo {

// A group box that draws its own frame and caption, in the "Tohoma" face the console's dialogs
// ask for (the font database substitutes a close face where it is missing).
class CGroupBox : public QGroupBox
{
    Q_OBJECT
public:
    explicit CGroupBox(QWidget *parent = nullptr);
    explicit CGroupBox(const QString &title, QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;
};

} // namespace qarvo
