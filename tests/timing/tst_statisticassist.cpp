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
    // Steps are samples ("nan" and "inf" too), "clear", "max=N" (SetMaxCount) or "valid=N"
    // (SetValidMinCount).
    void figures_data()
    {
        QTest::addColumn<int>("maxCount");
        QTest::addColumn<int>("validMinCount");
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<double>("max");
        QTest::addColumn<double>("min");
        QTest::addColumn<double>("avg");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<bool>("full");

        constexpr double lowest = std::numeric_limits<double>::lowest();
        constexpr double largest = std::numeric_limits<double>::max();
        constexpr double nan = std::numeric_limits<double>::quiet_NaN();
        constexpr double inf = std::numeric_limits<double>::infinity();
        using L = QStringList;
        QTest::newRow("fresh") << 3 << 0 << L{} << lowest << largest << 0.0 << true << false;
        QTest::newRow("window of three") << 3 << 0 << L{"1", "5", "2", "3"} << 5.0 << 2.0 << 10.0 / 3 << true << true;
        QTest::newRow("maximum leaves, rescan") << 3 << 0 << L{"1", "5", "2", "3", "1"} << 3.0 << 1.0 << 2.0 << true << true;
        QTest::newRow("minimum leaves, rescan") << 3 << 0 << L{"9", "1", "7", "8", "9"} << 9.0 << 7.0 << 8.0 << true << true;
        QTest::newRow("equal extremes within tolerance") << 2 << 0 << L{"4", "4", "3"} << 4.0 << 3.0 << 3.5 << true << true;
        QTest::newRow("unbounded") << 0 << 0 << L{"3", "-2", "8", "1"} << 8.0 << -2.0 << 2.5 << true << false;
        QTest::newRow("too few to be valid") << 5 << 3 << L{"2", "4"} << 4.0 << 2.0 << 3.0 << false << false;
        QTest::newRow("just enough to be valid") << 5 << 3 << L{"2", "4", "6"} << 6.0 << 2.0 << 4.0 << true << false;
        QTest::newRow("threshold clamped to length") << 2 << 9 << L{"1", "2"} << 2.0 << 1.0 << 1.5 << true << true;
        QTest::newRow("unbounded has no threshold") << 0 << 4 << L{"1"} << 1.0 << 1.0 << 1.0 << true << false;
        QTest::newRow("threshold set on unbounded") << 0 << 0 << L{"valid=3", "1", "max=5"} << 1.0 << 1.0 << 1.0 << true
                                                    << false;
        QTest::newRow("threshold set once bounded")
            << 0 << 0 << L{"valid=3", "1", "max=5", "valid=3"} << 1.0 << 1.0 << 1.0 << false << false;
        QTest::newRow("clear keeps the counts") << 2 << 2 << L{"7", "9", "clear"} << lowest << largest << 0.0 << false << false;
        QTest::newRow("refilled after clear") << 2 << 2 << L{"7", "9", "clear", "3", "5"} << 5.0 << 3.0 << 4.0 << true << true;
        // A shorter length trims one sample per append, not all at once.
        QTest::newRow("shortened: 10 leaves") << 4 << 0 << L{"10", "1", "2", "3", "max=2", "4"} << 4.0 << 1.0 << 2.5
                                                << true << true;
        QTest::newRow("shortened: 1 leaves") << 4 << 0 << L{"10", "1", "2", "3", "max=2", "4", "5"} << 5.0 << 2.0
                                               << 3.5 << true << true;
        // A negative length cannot be a window: it is taken as unbounded, with a warning.
        QTest::newRow("negative length") << -3 << 2 << L{"1", "max=-1", "2", "3"} << 3.0 << 1.0 << 2.0 << true << false;
        // A NaN or an infinity spoils the figures only while it is in the window.
        QTest::newRow("NaN left") << 3 << 0 << L{"nan", "1", "2", "3"} << 3.0 << 1.0 << 2.0 << true << true;
        QTest::newRow("NaN inside") << 3 << 0 << L{"1", "nan", "2"} << 2.0 << 1.0 << nan << true << true;
        QTest::newRow("infinity left") << 3 << 0 << L{"inf", "1", "2", "3"} << 3.0 << 1.0 << 2.0 << true << true;
        QTest::newRow("both infinities left") << 3 << 0 << L{"inf", "-inf", "2", "3", "4"} << 4.0 << 2.0 << 3.0 << true
                                              << true;
        QTest::newRow("infinity inside") << 3 << 0 << L{"1", "inf", "2"} << inf << 1.0 << inf << true << true;
    }

    void figures()
    {
        QFETCH(int, maxCount);
        QFETCH(int, validMinCount);
        QFETCH(QStringList, steps);
        const auto expectNegativeLength = [](const QString& function, int n) {
            if (n < 0)
                QTest::ignoreMessage(QtWarningMsg, qPrintable("VantorStatisticAssist::" + function + " negative window length "
                                                              + QString::number(n) + " taken as unbounded"));
        };
        expectNegativeLength("VantorStatisticAssist", maxCount);
        VantorStatisticAssist stat(maxCount, validMinCount);
        for (const QString& step : qAsConst(steps)) {
            const int n = step.section('=', 1).toInt();
            if (step == "clear") {
                stat.ClearAllData();
            } else if (step.startsWith("max=")) {
                expectNegativeLength("SetMaxCount", n);
                stat.SetMaxCount(n);
            } else if (step.startsWith("valid=")) {
                stat.SetValidMinCount(n);
            } else {
                bool ok = false;
                stat.AppendData(step.toDouble(&ok));
                QVERIFY2(ok, qPrintable(step));
            }
        }

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
};

QTEST_MAIN(TestStatisticAssist)
#include "tst_statisticassist.moc"
