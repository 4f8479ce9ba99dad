// Several consoles on one store, each a process of its own, and consoles killed half-way through
// a save: what was written is counted against what is there.

#include "storefixture.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <memory>

using namespace qarvo;
using namespace qarvo::test;

namespace {

std::unique_ptr<QProcess> startWriter(const QStringList &args)
{
    auto p = std::make_unique<QProcess>();
    p->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    p->start(QStringLiteral(QARVO_STOREWRITER), args);
    return p;
}

bool waitForLine(QProcess &p, const QByteArray &line)
{
    while (p.waitForReadyRead(30000)) {
        while (p.canReadLine()) {
            if (p.readLine().trimmed() == line)
                return true;
        }
    }
    return false;
}

// Whole: the rule row and its three rows, all of one version of one writer.
bool whole(const RuleSnapshot &r)
{
    QStringList tags;
    for (const auto &c : r.conditions)
        tags << c.value;
    for (const auto &s : r.scripts)
        tags << s.file;
    return r.hasRule && tags.size() == 3 && tags.count(tags.first()) == 3;
}

void seed(DataService *s, qint16 cat, int id)
{
    const QString name = QStringLiteral("Rule %1 #0").arg(id);
    for (qint16 i = 0; i < 3; ++i) {
        WMIRuleRow row = wmiRow(id, name, i);
        row.value = QStringLiteral("0");
        QVERIFY(cat == category::NAQC
                    ? !failed(calls::AddRQCScript(s, row.ruleId, i, row.value, QStringLiteral("Connect Actions"),
                                                  QString(), 1))
                    : !failed(calls::AddWMIRule(s, row)));
    }
    if (cat == category::NAQC)
        QVERIFY(!failed(calls::AddRQCRule(s, ruleIdText(id), name, QStringLiteral("VPN"), QString(), QString())));
}

} // namespace

class TestStoreProcesses : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase_data() { StoreFixture::addBackendRows(); }
    void init() { m_fx.setUp(); }
    void cleanup() { m_fx.tearDown(); }

    // Eight consoles start on a store that does not exist yet, so that they create it at once,
    // and finish a wizard in the same second, and then another: with the control's own id
    // drawing every one of them stores its rule, with its own rows, in a few calls.
    void consolesSavingAtOnceEachStoreTheirOwnRule()
    {
        constexpr int consoles = 8, saves = 2;
        std::vector<std::unique_ptr<QProcess>> writers;
        for (int i = 0; i < consoles; ++i)
            writers.push_back(startWriter({"wizard", m_fx.location(), QStringLiteral("C%1").arg(i),
                                           QString::number(saves), "200"}));
        for (auto &w : writers)
            QVERIFY(waitForLine(*w, "ready"));
        const QByteArray second = QByteArray::number(QDateTime::currentMSecsSinceEpoch() / 200 + 2) + '\n';
        for (auto &w : writers) {
            w->write(second);
            QVERIFY(w->waitForBytesWritten(5000));
        }
        int maxTries = 0;
        QList<std::pair<qint16, QString>> stored;
        for (auto &w : writers) {
            QVERIFY(w->waitForFinished(60000));
            for (const QByteArray &line : w->readAllStandardOutput().split('\n')) {
                const QList<QByteArray> f = line.split(' ');
                QVERIFY2(line.isEmpty() || f.first() == "saved", line.constData());
                if (!line.isEmpty()) {
                    stored.append({qint16(f.at(1).toInt()), QString::fromLatin1(f.at(2))});
                    maxTries = std::max(maxTries, f.at(3).toInt());
                }
            }
        }
        QCOMPARE(stored.size(), consoles * saves);
        // One console gets the id of each second; a console that loses a second to a busy
        // machine asks once more. Without the store's pacing it would be hundreds.
        qInfo("most CanUseID calls of one console: %d", maxTries);
        QVERIFY(maxTries <= 3 * consoles);
        auto store = m_fx.open();
        for (const auto &[cat, id] : stored) {
            const RuleSnapshot r = *store->rule(cat, id);
            QVERIFY2(whole(r) && (r.conditions.value(0).value == r.comment || r.scripts.value(0).file == r.comment),
                     qPrintable(id));
        }
        QCOMPARE(m_fx.count(QStringLiteral("rules")), consoles * saves);
        QCOMPARE(m_fx.count(QStringLiteral("wmi_conditions")) + m_fx.count(QStringLiteral("naqc_scripts")),
                 consoles * saves * 3);
    }

    // A console killed at any point of a property sheet's save leaves the old version, the new
    // one, or the old one in the history, from where it comes back whole.
    void killedSavesLoseNothing()
    {
        const QList<std::pair<qint16, int>> rules = {
            {category::WMI, 11}, {category::WMI, 12}, {category::NAQC, 21}, {category::NAQC, 22}};
        auto store = m_fx.open();
        for (const auto &[cat, id] : rules)
            seed(store.get(), cat, id);
        int saved = 0, restored = 0;
        const int rounds = m_fx.isPostgres() ? 5 : 10;
        for (int round = 0; round < rounds; ++round) {
            expireReservations();
            auto writer = startWriter({"edit", m_fx.location(), "w11", "w12", "n21", "n22"});
            QVERIFY(waitForLine(*writer, "ready"));
            QTest::qWait(QRandomGenerator::global()->bounded(5, m_fx.isPostgres() ? 300 : 120));
            writer->kill();
            const QByteArray out = writer->readAllStandardOutput();
            QVERIFY2(writer->waitForFinished(10000), out.constData());
            saved += out.count("saved");
            expireReservations();
            for (const auto &[cat, id] : rules) {
                if (whole(*store->rule(cat, ruleIdText(id))))
                    continue;
                const auto history = *store->history();
                const auto last = std::find_if(history.cbegin(), history.cend(), [&](const HistoryEntry &e) {
                    return e.category == cat && e.ruleId == id;
                });
                QVERIFY(last != history.cend());
                QCOMPARE(last->event, HistoryEvent::StoredAgain);
                QVERIFY(whole(*store->historyVersion(last->version)));
                const RestoreResult r = store->restoreVersion(last->version, RestoreId::ReplaceHolder);
                QVERIFY2(r.restored(), qPrintable(r.message));
                QVERIFY(whole(*store->rule(cat, ruleIdText(id))));
                ++restored;
            }
            QCOMPARE(m_fx.count(QStringLiteral("rules")), 4);
        }
        qInfo("%d saves finished, %d interrupted saves restored", saved, restored);
        // Every save kept two versions (renamed, then deleted to be stored again).
        QVERIFY(store->history()->size() >= 2 * saved);
    }

private:
    // What the last console reserved (the seeding one, or a killed one) runs out after a few
    // seconds or minutes; the test does not wait for that.
    void expireReservations()
    {
        for (const char *table : {"id_reservations", "name_reservations"})
            m_fx.scalar(QStringLiteral("UPDATE %1 SET expires_at = 0").arg(QLatin1String(table)));
    }

    StoreFixture m_fx;
};

QTEST_GUILESS_MAIN(TestStoreProcesses)
#include "tst_storeprocesses.moc"
