#pragma once

// The embeddable control. The host places it, sets ViewType, hands it the data service with
// ShowPane and opens the rule sheets through the Show… members; the members are declared in the
// order of their dispatch ids so that late binding sees them as a script host would.

#include <qarvo/dataservice/dataservice.h>
#include <qarvo/dataservice/qarvo_export.h>

#include <QWidget>

namespace qarvo {
class CSplitDlg;
}

class QARVO_EXPORT CqarvoCtrl : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(short ViewType READ ViewType WRITE setViewType NOTIFY ViewTypeChanged)

public:
    explicit CqarvoCtrl(QWidget *parent = nullptr);
    ~CqarvoCtrl() override;

    // 1
    Q_INVOKABLE void ShowPane(qarvo::DataService *pDisp, const QString &VerType, short CheckUser,
                              short cSerCnt);
    // 2
    Q_INVOKABLE short ShowRQCRuleWzd(qarvo::DataService *pDisp);
    // 3
    Q_INVOKABLE void RefreshList();
    // 4
    short ViewType() const { return m_viewTypeProperty; }
    void setViewType(short viewType);
    // 5
    Q_INVOKABLE short ShowWMIRuleWzd(qarvo::DataService *pDisp);
    // 6
    Q_INVOKABLE short ShowWQLRuleWzd(qarvo::DataService *pDisp);
    // 7
    Q_INVOKABLE short ShowWMIProperties(qarvo::DataService *pDisp, short ruleid);
    // 8
    Q_INVOKABLE short ShowRQCProperties(qarvo::DataService *pDisp, short ruleid);
    // 9
    Q_INVOKABLE short ShowWQLProperties(qarvo::DataService *pDisp, short ruleid);

    qarvo::CSplitDlg *splitDialog() const { return m_splitDlg; }
    int currentViewType() const { return m_viewType; }
    bool isModified() const { return m_modified; }
    void setModified(bool modified) { m_modified = modified; }

    // Where the frame inside the split view goes for a position rectangle given in the
    // automation convention (right and bottom exclusive): the right and bottom coordinates are
    // used as width and height, as hosts of the original control rely on.
    static QRect frameGeometryFor(const QRect &positionRect);

Q_SIGNALS:
    void ViewTypeChanged(short viewType);

protected:
    void resizeEvent(QResizeEvent *event) override;
    void moveEvent(QMoveEvent *event) override;

private:
    void applyGeometry();
    short showWMISheet(const QString &caption, int wql, int propertiesMode, int ruleId);

    qarvo::CSplitDlg *m_splitDlg = nullptr;
    qint32 m_viewType = 0;
    qint32 m_viewTypeCopy = 0;
    short m_viewTypeProperty = 0;
    bool m_modified = false;
};

Q_DECLARE_METATYPE(qarvo::DataService *)
