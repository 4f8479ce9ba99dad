#pragma once

// Shared by the condition dialog suites: finding children by objectName, reading lists and
// keeping screenshots to look at.

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QTableWidget>
#include <QtTest>

namespace qarvo::test {

template<typename T>
T *child(QWidget *parent, const char *name)
{
    T *w = parent->findChild<T *>(QLatin1String(name));
    if (!w)
        qWarning("no child %s", name);
    return w;
}

inline QStringList items(QComboBox *combo)
{
    QStringList out;
    for (int i = 0; i < combo->count(); ++i)
        out << combo->itemText(i);
    return out;
}

inline void choose(QComboBox *combo, const QString &text)
{
    const int index = combo->findText(text);
    QVERIFY2(index >= 0, qPrintable(text));
    combo->setCurrentIndex(index);
}

inline QStringList columnTexts(QTableWidget *table, int column)
{
    QStringList out;
    for (int r = 0; r < table->rowCount(); ++r)
        out << table->item(r, column)->text();
    return out;
}

// Kept in QARVO_SCREENSHOT_DIR when it is set, to be looked at.
inline void maybeScreenshot(QWidget *w, const QString &name)
{
    const QString dir = qEnvironmentVariable("QARVO_SCREENSHOT_DIR");
    if (!dir.isEmpty())
        w->grab().save(dir + "/" + name + ".png");
}

inline void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY2(f.open(QIODevice::WriteOnly), qPrintable(path));
    f.write(bytes);
}

} // namespace qarvo::test
