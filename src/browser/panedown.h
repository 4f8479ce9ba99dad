#pragma once

#include <QList>
#include <QPair>
#include <QWidget>

class QFrame;
class QLabel;
class QTreeWidget;

namespace qarvo {

class CGroupBox;

// The selected rule's conditions (WMI category) or script actions (NAQC category).
class CPaneDown : public QWidget
{
    Q_OBJECT
public:
    explicit CPaneDown(QWidget *parent = nullptr);
    ~CPaneDown() override;

    qint16 category() const { return m_category; }
    void setCategory(qint16 category);

    void showNaqcRule(int ruleId);
    void showWmiRule(int ruleId);
    void setHeading(const QString &text);
    QString heading() const;
    // No rule selected any more: heading and rows go, the columns stay.
    void clear();

    QTreeWidget *detailList() const { return m_list; }
    CGroupBox *headingFrame() const { return m_frames[0]; }
    void layoutControls(int width, int height);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void setColumns(const QList<QPair<QString, int>> &columns);
    void readScriptActions(int ruleId);
    void readConditions(int ruleId);

    qint16 m_category = 0;
    QTreeWidget *m_list = nullptr;
    QLabel *m_conditionsLabel = nullptr; // 208
    QLabel *m_profileLabel = nullptr;    // 209
    QFrame *m_separator = nullptr;       // 212
    QLabel *m_serviceNameLabel = nullptr;
    QLabel *m_naqcLabel = nullptr;
    QLabel *m_policyOptionLabel = nullptr;
    CGroupBox *m_frames[3] = {};
};

} // namespace qarvo
