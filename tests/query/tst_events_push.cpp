#include "query/VantorEntrustPushHub.h"

#include <VantorUtils.h>

#include <QSemaphore>
#include <QtTest>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Push = QMap<QString, QVariant>;

QStringList g_calls;
void pushA(const Push&) { g_calls << "A"; }
void pushB(const Push&) { g_calls << "B"; }
void pushC(const Push&) { g_calls << "C"; }

std::atomic<int> g_countX{0};
std::atomic<int> g_countY{0};
void countX(const Push&) { ++g_countX; }
void countY(const Push&) { ++g_countY; }

VantorEntrustPushHub::EntrustPushFunc byName(const QString& name)
{
    if (name == "A")
        return pushA;
    if (name == "B")
        return pushB;
    if (name == "C")
        return pushC;
    if (name == "lambda")
        return [](const Push&) { g_calls << "lambda"; };
    if (name == "other lambda")
        return [](const Push&) { g_calls << "other lambda"; };
    if (name == "bound")
        return std::bind(pushA, std::placeholders::_1);
    return {};
}

} // namespace

class TestEventsPush : public QObject
{
    Q_OBJECT

private slots:
    void init() { g_calls.clear(); }

    // Steps are "+name" (add) or "-name" (remove) with the expected answer; then one push.
    void registration_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QList<bool>>("answers");
        QTest::addColumn<QStringList>("calls");
        QTest::newRow("order of registration") << QStringList{"+B", "+A", "+C"} << QList<bool>{true, true, true}
                                               << QStringList{"B", "A", "C"};
        QTest::newRow("same function twice") << QStringList{"+A", "+A"} << QList<bool>{true, false} << QStringList{"A"};
        QTest::newRow("second lambda refused") << QStringList{"+lambda", "+other lambda", "+A"}
                                               << QList<bool>{true, false, true} << QStringList{"lambda", "A"};
        QTest::newRow("bound function counts as a lambda") << QStringList{"+bound", "+lambda"}
                                                           << QList<bool>{true, false} << QStringList{"A"};
        QTest::newRow("remove one function") << QStringList{"+A", "+B", "-A"} << QList<bool>{true, true, true}
                                             << QStringList{"B"};
        QTest::newRow("removing a lambda removes any lambda")
            << QStringList{"+lambda", "+B", "-other lambda", "+other lambda"} << QList<bool>{true, true, true, true}
            << QStringList{"B", "other lambda"};
        QTest::newRow("remove unknown answers true") << QStringList{"-C", "+C"} << QList<bool>{true, true}
                                                     << QStringList{"C"};
        // An empty callback wraps no plain function either: it is kept, never called, and
        // counts as the same as a lambda.
        QTest::newRow("empty callback kept, never called") << QStringList{"+", "+lambda", "+A"}
                                                           << QList<bool>{true, false, true} << QStringList{"A"};
    }

    void registration()
    {
        QFETCH(QStringList, steps);
        QFETCH(QList<bool>, answers);
        VantorEntrustPushHub hub;
        for (int i = 0; i < steps.size(); ++i) {
            const bool add = steps[i].startsWith('+');
            QVERIFY2(hub.RegisterEntrustPushFunc(byName(steps[i].mid(1)), add) == answers[i], qPrintable(steps[i]));
        }
        hub.ProcessEntrustPush(Push{{"orderID", "1"}});
        QTEST(g_calls, "calls");
    }

    // Slots: MQ before file trader; nothing before registration; empty arguments keep slots.
    void mqAndFileTraderSlots()
    {
        VantorEntrustPushHub hub;
        QStringList calls;
        hub.ProcessEntrustPushToMQ(Push{});
        hub.ProcessOrderResponsePushToMQ(QVariant(1));

        hub.RegisterFileTraderEntrustPushFunc([&](const Push&) { calls << "file entrust"; },
                                              [&](const QVariant& v) { calls << "file response " + v.toString(); });
        hub.RegisterMQEntrustPushFunc([&](const Push&) { calls << "mq entrust"; }, nullptr);
        hub.ProcessEntrustPushToMQ(Push{});
        hub.ProcessOrderResponsePushToMQ(QVariant(2));
        QCOMPARE(calls, (QStringList{"mq entrust", "file entrust", "file response 2"}));

        calls.clear();
        hub.RegisterMQEntrustPushFunc(nullptr, [&](const QVariant& v) { calls << "mq response " + v.toString(); });
        hub.RegisterFileTraderEntrustPushFunc(nullptr, nullptr);
        hub.ProcessEntrustPushToMQ(Push{});
        hub.ProcessOrderResponsePushToMQ(QVariant(3));
        QCOMPARE(calls, (QStringList{"mq entrust", "file entrust", "mq response 3", "file response 3"}));
    }

    void netData()
    {
        VantorEntrustPushHub hub;
        QVERIFY_EXCEPTION_THROWN(hub.SendMQNetData("a", 1, 2), std::bad_function_call);
        QStringList got;
        hub.RegisterMQNetDataFunc([&](const QString& a, const QVariant& b, const QVariant& c) {
            got << a << b.toString() << c.toString();
        });
        hub.SendMQNetData("topic", 5, "x");
        QCOMPARE(got, (QStringList{"topic", "5", "x"}));
    }

    // A slot's callback may put another callback in its slot while it runs (a bridge that
    // reconnects, say): it runs to its end with everything it holds, and the next push
    // reaches the new one.
    void slotReplacedByItsOwnCallback_data()
    {
        QTest::addColumn<QString>("slot");
        QTest::newRow("MQ entrust") << "mq entrust";
        QTest::newRow("MQ order response") << "mq response";
        QTest::newRow("file-trader entrust") << "file entrust";
        QTest::newRow("file-trader order response") << "file response";
        QTest::newRow("MQ net data") << "net data";
    }

    void slotReplacedByItsOwnCallback()
    {
        QFETCH(QString, slot);
        // Notes whether it is destroyed while the callback that holds it runs.
        struct Held {
            Held(bool* r, bool* d)
                : running(r)
                , destroyedWhileRunning(d)
            {
            }
            bool* running;
            bool* destroyedWhileRunning;
            ~Held()
            {
                if (*running)
                    *destroyedWhileRunning = true;
            }
        };
        VantorEntrustPushHub hub;
        QStringList calls;
        bool running = false;
        bool destroyedWhileRunning = false;
        std::function<void(const QString&)> install;
        install = [&](const QString& tag) {
            const auto held = std::make_shared<Held>(&running, &destroyedWhileRunning);
            const auto body = [&, held, tag]() {
                running = true;
                if (!tag.endsWith(QLatin1String("next")))
                    install(tag + " next");
                calls << tag;
                running = false;
            };
            if (slot == "mq entrust")
                hub.RegisterMQEntrustPushFunc([body](const Push&) { body(); }, nullptr);
            else if (slot == "mq response")
                hub.RegisterMQEntrustPushFunc(nullptr, [body](const QVariant&) { body(); });
            else if (slot == "file entrust")
                hub.RegisterFileTraderEntrustPushFunc([body](const Push&) { body(); }, nullptr);
            else if (slot == "file response")
                hub.RegisterFileTraderEntrustPushFunc(nullptr, [body](const QVariant&) { body(); });
            else
                hub.RegisterMQNetDataFunc([body](const QString&, const QVariant&, const QVariant&) { body(); });
        };
        const auto push = [&]() {
            if (slot.endsWith(QLatin1String("entrust")))
                hub.ProcessEntrustPushToMQ(Push{});
            else if (slot.endsWith(QLatin1String("response")))
                hub.ProcessOrderResponsePushToMQ(QVariant());
            else
                hub.SendMQNetData("topic", 1, 2);
        };
        install(slot);
        push();
        QVERIFY(!destroyedWhileRunning);
        push();
        QCOMPARE(calls, (QStringList{slot, slot + " next"}));
    }

    // The exported entry points reach the library's own receivers.
    void exportedEntryPoints()
    {
        QVERIFY(VantorUtils::RegisterEntrustPushFunc(pushC, true));
        QVERIFY(!VantorUtils::RegisterEntrustPushFunc(pushC, true));
        VantorUtils::ProcessEntrustPush(Push{});
        QCOMPARE(g_calls, QStringList{"C"});
        QVERIFY(VantorUtils::RegisterEntrustPushFunc(pushC, false));
        VantorUtils::ProcessEntrustPush(Push{});
        QCOMPARE(g_calls, QStringList{"C"});

        QStringList calls;
        VantorUtils::RegisterMQEntrustPushFunc([&](const Push&) { calls << "mq"; },
                                               [&](const QVariant&) { calls << "mq response"; });
        VantorUtils::ProcessEntrustPushToMQ(Push{});
        VantorUtils::ProcessOrderResponsePushToMQ(QVariant());
        QCOMPARE(calls, (QStringList{"mq", "mq response"}));
        VantorUtils::RegisterMQEntrustPushFunc([](const Push&) {}, [](const QVariant&) {});

        int netCalls = 0;
        VantorUtils::RegisterMQNetDataFunc([&](const QString&, const QVariant&, const QVariant&) { ++netCalls; });
        VantorUtils::SendMQNetData("a", 1, 2);
        QCOMPARE(netCalls, 1);
        VantorUtils::RegisterMQNetDataFunc(nullptr);
    }

    // A callback may change the registrations while it runs; the change counts from the
    // next push.
    void registrationFromInsideACallback()
    {
        VantorEntrustPushHub hub;
        QVERIFY(hub.RegisterEntrustPushFunc(pushA, true));
        QVERIFY(hub.RegisterEntrustPushFunc([&hub](const Push&) {
            g_calls << "lambda";
            hub.RegisterEntrustPushFunc(pushA, false);
            hub.RegisterEntrustPushFunc(pushB, true);
        }, true));
        QVERIFY(hub.RegisterEntrustPushFunc(pushC, true));
        hub.ProcessEntrustPush(Push{});
        QCOMPARE(g_calls, (QStringList{"A", "lambda", "C"}));
        g_calls.clear();
        hub.ProcessEntrustPush(Push{});
        QCOMPARE(g_calls, (QStringList{"lambda", "C", "B"}));
    }

    // A callback that throws after changing the registrations still leaves them changed.
    void registrationFromACallbackThatThrows()
    {
        VantorEntrustPushHub hub;
        bool thrown = false;
        QVERIFY(hub.RegisterEntrustPushFunc([&hub](const Push&) {
            hub.RegisterEntrustPushFunc(pushB, true);
            throw std::runtime_error("plug-in fault");
        }, true));
        try {
            hub.ProcessEntrustPush(Push{});
        } catch (const std::runtime_error&) {
            thrown = true;
        }
        QVERIFY(thrown);
        QVERIFY(!hub.RegisterEntrustPushFunc(pushB, true)); // already there
    }

    void removalWaitsForPushesInProgress()
    {
        // Once a removal returns, the removed callback runs nowhere: a plug-in may then free
        // what the callback uses.
        VantorEntrustPushHub hub;
        QSemaphore entered;
        QSemaphore release;
        std::atomic<bool> running{false};
        QVERIFY(hub.RegisterEntrustPushFunc([&](const Push&) {
            running = true;
            entered.release();
            release.acquire();
            running = false;
        }, true));
        std::thread pusher([&]() { hub.ProcessEntrustPush(Push{}); });
        entered.acquire();
        std::atomic<bool> removed{false};
        std::atomic<bool> removedWhileRunning{false};
        std::thread remover([&]() {
            hub.RegisterEntrustPushFunc([](const Push&) {}, false);
            removedWhileRunning = running.load();
            removed = true;
        });
        QTest::qWait(100); // gives the removal its chance to return early
        const bool returnedEarly = removed.load();
        release.release();
        pusher.join();
        remover.join();
        QVERIFY(!returnedEarly);
        QVERIFY(!removedWhileRunning);
        g_calls.clear();
        hub.ProcessEntrustPush(Push{});
        QVERIFY(g_calls.isEmpty());
    }

    void pushFromInsideACallback()
    {
        // A callback may hand out another push on the same thread without waiting on itself.
        VantorEntrustPushHub hub;
        int depth = 0;
        QVERIFY(hub.RegisterEntrustPushFunc(pushA, true));
        QVERIFY(hub.RegisterEntrustPushFunc([&](const Push&) {
            if (++depth == 1) {
                hub.ProcessEntrustPush(Push{});
                QVERIFY(!hub.RegisterEntrustPushFunc(pushA, true)); // still there until the push ends
                QVERIFY(hub.RegisterEntrustPushFunc(pushA, false));
                QVERIFY(hub.RegisterEntrustPushFunc(pushA, true)); // gone by then, so it may come back
            }
        }, true));
        hub.ProcessEntrustPush(Push{});
        QCOMPARE(g_calls, (QStringList{"A", "A"}));
        g_calls.clear();
        hub.ProcessEntrustPush(Push{});
        QCOMPARE(g_calls, (QStringList{"A"})); // removed and added back: now after the lambda
    }

    // Pushes on several threads while another thread keeps adding and removing callbacks.
    void registrationWhileDispatching()
    {
        VantorEntrustPushHub hub;
        g_countX = 0;
        g_countY = 0;
        QVERIFY(hub.RegisterEntrustPushFunc(countX, true));
        std::atomic<bool> stop{false};
        std::atomic<int> pushes{0};
        std::vector<std::thread> dispatchers;
        for (int t = 0; t < 3; ++t) {
            dispatchers.emplace_back([&]() {
                const Push push{{"orderID", "1"}};
                while (!stop.load()) {
                    hub.ProcessEntrustPush(push);
                    ++pushes;
                }
            });
        }
        std::thread registrar([&]() {
            for (int i = 0; i < 2000; ++i) {
                hub.RegisterEntrustPushFunc(countY, true);
                hub.RegisterEntrustPushFunc([](const Push&) {}, i % 2 == 0);
                hub.RegisterEntrustPushFunc(countY, false);
            }
            stop = true;
        });
        registrar.join();
        for (auto& th : dispatchers)
            th.join();
        // countX stayed registered all along: exactly one call per push.
        QCOMPARE(g_countX.load(), pushes.load());
        QVERIFY(g_countY.load() <= pushes.load());
    }
};

QTEST_MAIN(TestEventsPush)
#include "tst_events_push.moc"
