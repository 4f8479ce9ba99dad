#pragma once

// The array value dialogs of the WMI condition editor: CArrayDlg ("Array Properties") keeps a
// numbered list of values, CArrayInputDlg ("Input Data") asks for one value.

#include <QDialog>
#include <QStringList>

class QLineEdit;
class QPushButton;
class QTableWidget;

namespace qarvo {

// The array text is the values joined with "," and nothing else, so splitting is the inverse
// only for values without ",". "a," gives "a" and an empty value.
QStringList splitArrayText(const QString &text);
QString joinArrayValues(const QStringList &values);

class CArrayInputDlg : public QDialog
{
    Q_OBJECT
public:
    explicit CArrayInputDlg(QWidget *parent = nullptr);
    QString value() const;

    void accept() override;

private:
    QLineEdit *m_value;
};

class CArrayDlg : public QDialog
{
    Q_OBJECT
public:
    explicit CArrayDlg(QWidget *parent = nullptr);

    // `hasInitialContent` is the caller's flag: only then is `text` split into the list.
    void setArrayText(const QString &text, bool hasInitialContent);
    QString arrayText() const { return m_text; }
    QStringList values() const;

    void accept() override;

private:
    void addValue();
    void deleteSelected();
    void appendRow(const QString &value);
    bool eventFilter(QObject *watched, QEvent *event) override;

    QString m_text;
    QTableWidget *m_list;
    QPushButton *m_add;
    QPushButton *m_del;
};

} // namespace qarvo
