// Replays the fuzzing corpus through the profile reader in every ordinary test run, so that an
// input that once broke the reader keeps being read.

#include "naqcrule/cmsprofile.h"
#include "naqcrule/inireader.h"

#include <QDir>
#include <QtTest>

using namespace qarvo;

class TestFuzzCorpus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void replay();
};

void TestFuzzCorpus::replay()
{
    const QDir corpus(qEnvironmentVariable("QARVO_SOURCE_DIR")
                      + QStringLiteral("/fuzz/naqcrule/corpus"));
    const QStringList files = corpus.entryList(QDir::Files, QDir::Name);
    QVERIFY2(files.size() >= 5, qPrintable(corpus.path()));
    int profiles = 0;
    for (const QString &name : files) {
        const auto profile = readCmsProfile(corpus.filePath(name));
        if (!profile)
            continue;
        ++profiles;
        QVERIFY2(profile->serviceName.size() < cms::ServiceNameBuffer, qPrintable(name));
        QVERIFY(profile->rows.size() <= 900);
        for (const CmsScriptRow &row : profile->rows) {
            QVERIFY2(cmsActionSections().contains(row.actionType), qPrintable(name));
            QVERIFY(row.scriptFile.size() < cms::ActionBuffer);
            QVERIFY(row.comment.size() < cms::ActionBuffer);
        }
    }
    QVERIFY(profiles > 0);
}

QTEST_GUILESS_MAIN(TestFuzzCorpus)
#include "tst_fuzzcorpus.moc"
