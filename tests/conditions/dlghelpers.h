#pragma once

// Shared by the condition suites: finding children by objectName, reading lists, keeping
// screenshots to look at and replaying fuzz corpora.

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

// Runs every input of a fuzz corpus (a folder under fuzz/) through the fuzz target's own entry
// point, so that every build checks what the fuzzer found interesting. Returns the inputs that
// fail, or a line saying the corpus is not there.
template<typename Run> QStringList corpusFailures(const QString &folder, qsizetype atLeast, Run run)
{
    const QDir corpus(qEnvironmentVariable("QARVO_SOURCE_DIR") + "/fuzz/" + folder);
    const QStringList names = corpus.entryList(QDir::Files, QDir::Name);
    if (names.size() < atLeast)
        return {corpus.path() + " holds fewer than " + QString::number(atLeast) + " inputs"};
    QStringList failed;
    for (const QString &name : names) {
        QFile file(corpus.filePath(name));
        const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        if (!run(reinterpret_cast<const std::uint8_t *>(bytes.constData()),
                 std::size_t(bytes.size())))
            failed << name;
    }
    return failed;
}

} // namespace qarvo::test
