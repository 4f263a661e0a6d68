#include <VantorInitStateMgr.h>

#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

namespace {
// Runs one step by name: start, fail, partial (ok but not complete), done, suspend, reset;
// "look" changes nothing.
bool runStep(VantorInitStateMgr* mgr, const QString& step, const QString& type)
{
    if (step == "look")
        return false;
    if (step == "start")
        return mgr->StartInit(type);
    if (step == "fail")
        return mgr->FinishInit(type, false, true);
    if (step == "partial")
        return mgr->FinishInit(type, true, false);
    if (step == "done")
        return mgr->FinishInit(type, true, true);
    if (step == "suspend")
        return mgr->SuspendInit(type);
    if (step == "reset")
        return mgr->Reset(type);
    qFatal("unknown step %s", qPrintable(step));
}
} // namespace

class TestInitStateMgr : public QObject
{
    Q_OBJECT

private slots:
    // Each step is "name:expected result:state afterwards". Every row starts with a look at
    // a type never seen: not initialised, no entry.
    void transitions_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::newRow("unknown type") << QStringList{};
        QTest::newRow("no reset of an unknown type") << QStringList{"reset:0:0", "start:1:1", "start:0:1"};
        QTest::newRow("success blocks start until reset")
            << QStringList{"start:1:1", "done:1:5", "start:0:5", "reset:1:0", "start:1:1"};
        QTest::newRow("pending may start again") << QStringList{"start:1:1", "partial:1:4", "start:1:1", "partial:1:4"};
        QTest::newRow("failure may start again") << QStringList{"start:1:1", "fail:1:2", "start:1:1"};
        QTest::newRow("suspend while initialising") << QStringList{"start:1:1", "suspend:1:3", "start:1:1"};
        QTest::newRow("suspend after success") << QStringList{"start:1:1", "done:1:5", "suspend:1:3"};
        QTest::newRow("no reset while initialising") << QStringList{"start:1:1", "reset:0:1"};
        QTest::newRow("reset of a failure") << QStringList{"fail:1:2", "reset:1:0", "reset:1:0"};
        QTest::newRow("writers create the entry") << QStringList{"done:1:5", "start:0:5"};
        QTest::newRow("suspend creates the entry") << QStringList{"suspend:1:3"};
    }

    void transitions()
    {
        QFETCH(QStringList, steps);
        static const QStringList names{"未初始化", "正在初始化", "初始化失败", "初始化部分失败", "待定", "初始化成功"};
        auto mgr = VantorInitStateMgr::instance();
        const QString type = QStringLiteral("transitions/") + QTest::currentDataTag();
        bool created = false; // only a step that succeeds makes the entry
        for (const QString& step : QStringList{"look:0:0"} + steps) {
            const QStringList parts = step.split(':');
            const bool result = runStep(mgr, parts[0], type);
            const int state = parts[2].toInt();
            created = created || result;
            QVERIFY2(result == (parts[1] == "1"), qPrintable(step));
            QVERIFY2(mgr->GetInitState(type) == state, qPrintable(step));
            QVERIFY2(mgr->HasType(type) == created, qPrintable(step));
            QCOMPARE(mgr->GetInitStateName(type), names.at(state));
            QCOMPARE(mgr->IsInited(type), state == VantorInitStateMgr::InitSucceeded);
            QCOMPARE(mgr->CanReinit(type), state != VantorInitStateMgr::Initing && state != VantorInitStateMgr::InitSucceeded);
        }
    }

    // Many threads drive the same types through their states at once.
    void manyThreads()
    {
        auto mgr = VantorInitStateMgr::instance();
        const QStringList types{"mt/a", "mt/b", "mt/c"};
        std::atomic<int> started{0}, badNames{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&, t]() {
                for (int i = 0; i < 2000; ++i) {
                    const QString& type = types[(i + t) % types.size()];
                    if (mgr->StartInit(type)) {
                        ++started;
                        mgr->FinishInit(type, i % 3 != 0, i % 2 == 0);
                    }
                    if (mgr->IsInited(type))
                        mgr->Reset(type);
                    if (i % 97 == 0)
                        mgr->SuspendInit(type);
                    badNames += mgr->GetInitStateName(type).isEmpty();
                }
            });
        }
        for (auto& th : threads)
            th.join();
        QVERIFY(started > 0);
        QCOMPARE(badNames.load(), 0);
        // Every thread's last step on a type left it finished, suspended or reset.
        for (const QString& type : types)
            QVERIFY(mgr->GetInitState(type) != VantorInitStateMgr::Initing);
    }
};

QTEST_MAIN(TestInitStateMgr)
#include "tst_initstatemgr.moc"
