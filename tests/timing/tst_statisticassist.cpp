#include <VantorStatisticAssist.h>

#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <deque>
#include <limits>
#include <numeric>

class TestStatisticAssist : public QObject
{
    Q_OBJECT

private slots:
    void figures_data()
    {
        QTest::addColumn<int>("maxCount");
        QTest::addColumn<int>("validMinCount");
        QTest::addColumn<QList<double>>("values");
        QTest::addColumn<double>("max");
        QTest::addColumn<double>("min");
        QTest::addColumn<double>("avg");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<bool>("full");

        constexpr double lowest = std::numeric_limits<double>::lowest();
        constexpr double largest = std::numeric_limits<double>::max();
        QTest::newRow("fresh") << 3 << 0 << QList<double>{} << lowest << largest << 0.0 << true << false;
        QTest::newRow("window of three") << 3 << 0 << QList<double>{1, 5, 2, 3} << 5.0 << 2.0 << 10.0 / 3 << true << true;
        QTest::newRow("maximum leaves, rescan") << 3 << 0 << QList<double>{1, 5, 2, 3, 1} << 3.0 << 1.0 << 2.0 << true << true;
        QTest::newRow("minimum leaves, rescan") << 3 << 0 << QList<double>{9, 1, 7, 8, 9} << 9.0 << 7.0 << 8.0 << true << true;
        QTest::newRow("decreasing") << 2 << 0 << QList<double>{10, 9, 8, 7} << 8.0 << 7.0 << 7.5 << true << true;
        QTest::newRow("equal extremes within tolerance") << 2 << 0 << QList<double>{4, 4, 3} << 4.0 << 3.0 << 3.5 << true << true;
        QTest::newRow("negative samples") << 2 << 0 << QList<double>{-1, -5, -3} << -3.0 << -5.0 << -4.0 << true << true;
        QTest::newRow("unbounded") << 0 << 0 << QList<double>{3, -2, 8, 1} << 8.0 << -2.0 << 2.5 << true << false;
        QTest::newRow("too few to be valid") << 5 << 3 << QList<double>{2, 4} << 4.0 << 2.0 << 3.0 << false << false;
        QTest::newRow("just enough to be valid") << 5 << 3 << QList<double>{2, 4, 6} << 6.0 << 2.0 << 4.0 << true << false;
        QTest::newRow("threshold clamped to length") << 2 << 9 << QList<double>{1, 2} << 2.0 << 1.0 << 1.5 << true << true;
        QTest::newRow("unbounded has no threshold") << 0 << 4 << QList<double>{1} << 1.0 << 1.0 << 1.0 << true << false;
    }

    void figures()
    {
        QFETCH(int, maxCount);
        QFETCH(int, validMinCount);
        QFETCH(QList<double>, values);
        VantorStatisticAssist stat(maxCount, validMinCount);
        for (double v : qAsConst(values))
            stat.AppendData(v);

        bool validMax = false, validMin = false, validAvg = false;
        QTEST(stat.GetMaxData(&validMax), "max");
        QTEST(stat.GetMinData(&validMin), "min");
        QTEST(stat.GetAvgData(&validAvg), "avg");
        QTEST(validMax, "valid");
        QTEST(validMin, "valid");
        QTEST(validAvg, "valid");
        QTEST(stat.IsQueueFull(), "full");
    }

    // Random samples against a plain recomputation of the window after every append.
    void matchesRecomputedWindow_data()
    {
        QTest::addColumn<int>("maxCount");
        QTest::addColumn<bool>("integers"); // many equal samples
        QTest::newRow("length 1") << 1 << false;
        QTest::newRow("length 7, integers") << 7 << true;
        QTest::newRow("length 50") << 50 << false;
        QTest::newRow("length 50, integers") << 50 << true;
    }

    void matchesRecomputedWindow()
    {
        QFETCH(int, maxCount);
        QFETCH(bool, integers);
        QRandomGenerator rng(1234 + maxCount);
        VantorStatisticAssist stat(maxCount);
        std::deque<double> window;
        for (int i = 0; i < 5000; ++i) {
            const double v = integers ? double(rng.bounded(-5, 6)) : rng.generateDouble() * 200 - 100;
            stat.AppendData(v);
            window.push_back(v);
            if (int(window.size()) > maxCount)
                window.pop_front();
            const double sum = std::accumulate(window.begin(), window.end(), 0.0);
            QCOMPARE(stat.GetMaxData(), *std::max_element(window.begin(), window.end()));
            QCOMPARE(stat.GetMinData(), *std::min_element(window.begin(), window.end()));
            QVERIFY2(qAbs(stat.GetAvgData() - sum / window.size()) < 1e-6, qPrintable(QString::number(i)));
        }
    }

    void clearKeepsCounts()
    {
        VantorStatisticAssist stat(2, 2);
        stat.AppendData(7);
        stat.AppendData(9);
        QVERIFY(stat.IsQueueFull());
        stat.ClearAllData();
        QVERIFY(!stat.IsQueueFull());
        bool valid = true;
        QCOMPARE(stat.GetMaxData(&valid), std::numeric_limits<double>::lowest());
        QVERIFY(!valid);
        QCOMPARE(stat.GetMinData(), std::numeric_limits<double>::max());
        QCOMPARE(stat.GetAvgData(), 0.0);
        stat.AppendData(3);
        stat.AppendData(5);
        QVERIFY(stat.IsQueueFull());
        QCOMPARE(stat.GetAvgData(&valid), 4.0);
        QVERIFY(valid);
    }

    // A shorter length trims one sample per append, not all at once.
    void shrinkingTrimsOnePerAppend()
    {
        VantorStatisticAssist stat(4);
        for (double v : {10.0, 1.0, 2.0, 3.0})
            stat.AppendData(v);
        stat.SetMaxCount(2);
        stat.AppendData(4); // drops 10: window 1 2 3 4
        QCOMPARE(stat.GetMaxData(), 4.0);
        QCOMPARE(stat.GetAvgData(), 2.5);
        stat.AppendData(5); // drops 1: window 2 3 4 5
        QCOMPARE(stat.GetMinData(), 2.0);
        QCOMPARE(stat.GetAvgData(), 3.5);
    }

    void thresholdNeedsBoundedWindow()
    {
        VantorStatisticAssist stat;
        stat.SetValidMinCount(3);
        stat.AppendData(1);
        bool valid = false;
        stat.GetAvgData(&valid);
        QVERIFY(valid);

        stat.SetMaxCount(5);
        stat.SetValidMinCount(3);
        stat.GetAvgData(&valid);
        QVERIFY(!valid);
    }

    // A NaN or an infinity spoils the figures only while it is in the window.
    void nonFiniteSamples_data()
    {
        QTest::addColumn<QList<double>>("values"); // window of three
        QTest::addColumn<double>("max");
        QTest::addColumn<double>("min");
        QTest::addColumn<double>("avg");
        constexpr double nan = std::numeric_limits<double>::quiet_NaN();
        constexpr double inf = std::numeric_limits<double>::infinity();
        QTest::newRow("NaN left") << QList<double>{nan, 1, 2, 3} << 3.0 << 1.0 << 2.0;
        QTest::newRow("NaN inside") << QList<double>{1, nan, 2} << 2.0 << 1.0 << nan;
        QTest::newRow("infinity left") << QList<double>{inf, 1, 2, 3} << 3.0 << 1.0 << 2.0;
        QTest::newRow("both infinities left") << QList<double>{inf, -inf, 2, 3, 4} << 4.0 << 2.0 << 3.0;
        QTest::newRow("infinity inside") << QList<double>{1, inf, 2} << inf << 1.0 << inf;
    }

    void nonFiniteSamples()
    {
        QFETCH(QList<double>, values);
        VantorStatisticAssist stat(3);
        for (double v : qAsConst(values))
            stat.AppendData(v);
        QTEST(stat.GetMaxData(), "max");
        QTEST(stat.GetMinData(), "min");
        QTEST(stat.GetAvgData(), "avg");
    }

    // A negative length cannot be a window: it is taken as unbounded, with a warning.
    void negativeLengthIsUnbounded()
    {
        QTest::ignoreMessage(QtWarningMsg, "VantorStatisticAssist::VantorStatisticAssist negative window length -3 taken as unbounded");
        VantorStatisticAssist stat(-3, 2);
        stat.AppendData(1);
        QTest::ignoreMessage(QtWarningMsg, "VantorStatisticAssist::SetMaxCount negative window length -1 taken as unbounded");
        stat.SetMaxCount(-1);
        stat.AppendData(2);
        stat.AppendData(3);
        bool valid = false;
        QCOMPARE(stat.GetAvgData(&valid), 2.0);
        QVERIFY(valid);
        QVERIFY(!stat.IsQueueFull());
    }
};

QTEST_MAIN(TestStatisticAssist)
#include "tst_statisticassist.moc"
