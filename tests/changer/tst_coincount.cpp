#include "changer/coincounts.h"
#include "support/columns.h"

#include <QtTest>

using CcTalk::CoinCounts;

namespace {

using Counters = CoinCounts::Counters;
using Rebased = QMap<unsigned char, QPair<unsigned int, unsigned int>>;

Counters at(unsigned int position1, unsigned int position2 = 0)
{
    return Counters{{1, position1}, {2, position2}};
}

} // namespace

Q_DECLARE_METATYPE(Counters)
Q_DECLARE_METATYPE(Rebased)

class TestCoinCount : public QObject
{
    Q_OBJECT
private slots:
    void bound_data()
    {
        testsupport::columns<qint64, unsigned int>("elapsed", "coins");
        QTest::newRow("none") << qint64(0) << 25u;
        QTest::newRow("one poll") << qint64(200) << 25u;
        QTest::newRow("just under a second") << qint64(999) << 25u;
        QTest::newRow("one second") << qint64(1000) << 50u;
        QTest::newRow("ten seconds") << qint64(10000) << 275u;
        QTest::newRow("a clock going back") << qint64(-5000) << 25u;
        QTest::newRow("half the range") << qint64(1309000) << 32750u;
        QTest::newRow("an hour") << qint64(3600000) << 32767u;
    }

    void bound()
    {
        QFETCH(qint64, elapsed);
        QFETCH(unsigned int, coins);
        QCOMPARE(CoinCounts::maxCoins(elapsed), coins);
    }

    // Two readings 200 ms apart: what the second adds to the first. A reading that jumps
    // is held back until a third one, 50 ms later, says the same.
    void step_data()
    {
        testsupport::columns<Counters, Counters, Counters, Rebased>("before", "after", "added", "jumps");
        QTest::newRow("unchanged") << at(5, 7) << at(5, 7) << Counters() << Rebased();
        QTest::newRow("one coin") << at(5, 7) << at(6, 7) << Counters{{1, 1}} << Rebased();
        QTest::newRow("both positions") << at(5, 7) << at(8, 9) << Counters{{1, 3}, {2, 2}} << Rebased();
        QTest::newRow("the bound itself") << at(0) << at(25) << Counters{{1, 25}} << Rebased();
        QTest::newRow("past the bound") << at(0) << at(26) << Counters() << Rebased{{1, {0, 26}}};
        QTest::newRow("roll-over 65535 -> 1") << at(65535) << at(1) << Counters{{1, 2}} << Rebased();
        QTest::newRow("roll-over 65530 -> 0") << at(65530) << at(0) << Counters{{1, 6}} << Rebased();
        QTest::newRow("went down by one") << at(10) << at(9) << Counters() << Rebased{{1, {10, 9}}};
        QTest::newRow("device restart")
            << at(57, 12) << at(0, 0) << Counters() << Rebased{{1, {57, 0}}, {2, {12, 0}}};
        QTest::newRow("restart, coin counted since")
            << at(57, 3) << at(1, 4) << Counters{{2, 1}} << Rebased{{1, {57, 1}}};
        QTest::newRow("garbled upwards") << at(10) << at(40000) << Counters() << Rebased{{1, {10, 40000}}};
        QTest::newRow("wrapping high bits ignored") << at(3) << at(0x10004) << Counters{{1, 1}} << Rebased();
    }

    void step()
    {
        QFETCH(Counters, before);
        QFETCH(Counters, after);
        QFETCH(Counters, added);
        QFETCH(Rebased, jumps);
        CoinCounts counts;
        QVERIFY(!counts.hasBaseline());
        const CoinCounts::Step first = counts.update(before, 1000);
        QVERIFY(first.added.isEmpty());
        QVERIFY(first.rebased.isEmpty());
        QVERIFY(first.unconfirmed.isEmpty());
        QVERIFY(counts.hasBaseline());
        const CoinCounts::Step second = counts.update(after, 1200);
        QVERIFY(second.discarded.isEmpty());
        if (jumps.isEmpty()) {
            QCOMPARE(second.added, added);
            QVERIFY(second.rebased.isEmpty());
            QVERIFY(second.unconfirmed.isEmpty());
            QVERIFY(!counts.pending());
        } else {
            // Nothing of an odd reading counts, and the baseline stays.
            QVERIFY(second.added.isEmpty());
            QVERIFY(second.rebased.isEmpty());
            QCOMPARE(second.unconfirmed, jumps);
            QVERIFY(counts.pending());
            for (auto it = before.cbegin(); it != before.cend(); ++it)
                QCOMPARE(counts.values().value(it.key()), it.value() % 65536);
            const CoinCounts::Step third = counts.update(after, 1250);
            QCOMPARE(third.added, added);
            QCOMPARE(third.rebased, jumps);
            QVERIFY(third.unconfirmed.isEmpty());
            QVERIFY(third.discarded.isEmpty());
            QVERIFY(!counts.pending());
        }
        // Either way counting goes on from the new reading.
        for (auto it = after.cbegin(); it != after.cend(); ++it)
            QCOMPARE(counts.values().value(it.key()), it.value() % 65536);
    }

    // After a confirmed re-baseline the next coins count normally.
    void countingGoesOnAfterARestart()
    {
        CoinCounts counts;
        counts.update(at(300), 0);
        QCOMPARE(counts.update(at(0), 200).unconfirmed, (Rebased{{1, {300, 0}}}));
        QCOMPARE(counts.update(at(0), 220).rebased, (Rebased{{1, {300, 0}}}));
        const CoinCounts::Step next = counts.update(at(2), 420);
        QCOMPARE(next.added, (Counters{{1, 2}}));
        QVERIFY(next.rebased.isEmpty());
    }

    // A stale answer (older, lower counts) or a garbled one, followed by the true reading:
    // the odd one is dropped, the coins are counted once against the baseline.
    void singleOddReadingIsDiscarded_data()
    {
        testsupport::columns<Counters, Counters, Counters>("odd", "next", "added");
        QTest::newRow("stale") << at(95, 12) << at(101, 12) << Counters{{1, 1}};
        QTest::newRow("zeros") << at(0, 0) << at(100, 13) << Counters{{2, 1}};
        QTest::newRow("garbled") << at(40000, 12) << at(100, 12) << Counters();
    }

    void singleOddReadingIsDiscarded()
    {
        QFETCH(Counters, odd);
        QFETCH(Counters, next);
        QFETCH(Counters, added);
        CoinCounts counts;
        counts.update(at(100, 12), 0);
        const CoinCounts::Step held = counts.update(odd, 200);
        QVERIFY(held.added.isEmpty());
        QVERIFY(!held.unconfirmed.isEmpty());
        const CoinCounts::Step step = counts.update(next, 250);
        QCOMPARE(step.added, added);
        QCOMPARE(step.discarded, held.unconfirmed);
        QVERIFY(step.rebased.isEmpty());
        QVERIFY(!counts.pending());
        QCOMPARE(counts.values(), next);
    }

    // Two odd readings that differ: the second waits for its own confirmation.
    void oddReadingsMustAgree()
    {
        CoinCounts counts;
        counts.update(at(57), 0);
        QCOMPARE(counts.update(at(0), 200).unconfirmed, (Rebased{{1, {57, 0}}}));
        const CoinCounts::Step second = counts.update(at(1), 250);
        QCOMPARE(second.discarded, (Rebased{{1, {57, 0}}}));
        QCOMPARE(second.unconfirmed, (Rebased{{1, {57, 1}}}));
        QVERIFY(second.added.isEmpty());
        QCOMPARE(counts.values().value(1), 57u);
        const CoinCounts::Step third = counts.update(at(1), 300);
        QCOMPARE(third.rebased, (Rebased{{1, {57, 1}}}));
        QVERIFY(third.added.isEmpty());
        QCOMPARE(counts.values().value(1), 1u);
    }

    // While acceptance opens, a confirmed drop means the device restarted every counter on
    // the enable: each reading is the coins since, also where it equals the old value.
    void restartOnEnableCountsEveryPositionFromZero()
    {
        CoinCounts counts;
        counts.update(Counters{{2, 1}, {3, 1}, {4, 0}, {8, 3}}, 0);
        const Counters after{{2, 0}, {3, 1}, {4, 1}, {8, 0}};
        QVERIFY(counts.update(after, 2400, CoinCounts::FromZero).added.isEmpty());
        const CoinCounts::Step step = counts.update(after, 2410, CoinCounts::FromZero);
        QCOMPARE(step.added, (Counters{{3, 1}, {4, 1}}));
        QCOMPARE(step.rebased, (Rebased{{2, {1, 0}}, {8, {3, 0}}}));

        // Without a drop nothing restarted: the usual differences.
        CoinCounts kept;
        kept.update(at(4, 2), 0);
        QCOMPARE(kept.update(at(5, 2), 200, CoinCounts::FromZero).added, (Counters{{1, 1}}));
        // Taken as a new baseline outside the opening.
        CoinCounts later;
        later.update(Counters{{2, 1}, {3, 1}}, 0);
        later.update(Counters{{2, 0}, {3, 1}}, 200);
        QVERIFY(later.update(Counters{{2, 0}, {3, 1}}, 210).added.isEmpty());
    }

    // The bound is taken over the time since the previous reading.
    void bigStepAfterALongGapIsCoins()
    {
        CoinCounts counts;
        counts.update(at(100), 0);
        QCOMPARE(counts.update(at(400), 12000).added, (Counters{{1, 300}}));
        QCOMPARE(counts.update(at(700), 12200).unconfirmed, (Rebased{{1, {400, 700}}}));
    }

    void positionWithoutBaselineOnlySetsIt()
    {
        CoinCounts counts;
        counts.update(Counters{{1, 5}}, 0);
        const CoinCounts::Step step = counts.update(Counters{{1, 6}, {3, 40}}, 200);
        QCOMPARE(step.added, (Counters{{1, 1}}));
        QVERIFY(step.rebased.isEmpty());
        QCOMPARE(counts.update(Counters{{1, 6}, {3, 41}}, 400).added, (Counters{{3, 1}}));
    }

    void clearForgetsTheBaseline()
    {
        CoinCounts counts;
        counts.update(at(9), 0);
        counts.clear();
        QVERIFY(!counts.hasBaseline());
        QVERIFY(counts.values().isEmpty());
        QVERIFY(counts.update(at(20), 200).added.isEmpty());
        QCOMPARE(counts.values().value(1), 20u);
    }
};

QTEST_GUILESS_MAIN(TestCoinCount)
#include "tst_coincount.moc"
