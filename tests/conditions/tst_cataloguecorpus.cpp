// Replays the fuzz corpus through the catalogue reader, so that every build checks the inputs
// the fuzzer found interesting, sanitizers or not.

#include "fuzzcatalogue.h"

#include <QDir>
#include <QFile>
#include <QtTest>

class TestCatalogueCorpus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void replay();
};

void TestCatalogueCorpus::replay()
{
    const QDir corpus(qEnvironmentVariable("QARVO_SOURCE_DIR") + "/fuzz/conditions/corpus");
    const QStringList names = corpus.entryList(QDir::Files, QDir::Name);
    QVERIFY2(names.size() >= 4, qPrintable(corpus.path()));
    for (const QString &name : names) {
        QFile file(corpus.filePath(name));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QVERIFY2(qarvo::fuzz::runCatalogueInput(
                     reinterpret_cast<const std::uint8_t *>(bytes.constData()),
                     std::size_t(bytes.size())),
                 qPrintable(name));
    }
}

QTEST_GUILESS_MAIN(TestCatalogueCorpus)
#include "tst_cataloguecorpus.moc"
