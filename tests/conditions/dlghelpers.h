#pragma once

// Shared by the condition dialog suites: finding children by objectName, reading lists and
// keeping screenshots to look at.

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QTableWidget>
#include <QtTest>

#include <cstddef>
#include <cstdint>

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

// Every input of a fuzz corpus (a folder under fuzz/) through the target's own entry point, so
// that every build checks the inputs the fuzzer found interesting.
inline void replayCorpus(const QString &folder, bool (*run)(const std::uint8_t *, std::size_t))
{
    const QDir corpus(qEnvironmentVariable("QARVO_SOURCE_DIR") + "/fuzz/" + folder);
    const QStringList names = corpus.entryList(QDir::Files, QDir::Name);
    QVERIFY2(names.size() >= 4, qPrintable(corpus.path()));
    for (const QString &name : names) {
        QFile file(corpus.filePath(name));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QVERIFY2(run(reinterpret_cast<const std::uint8_t *>(bytes.constData()), std::size_t(bytes.size())),
                 qPrintable(name));
    }
}

} // namespace qarvo::test
