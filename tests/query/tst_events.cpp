#include "query/VantorEntrustPushHub.h"
#include "query/VantorEventIdRegistry.h"

#include <KorvoKeys.h>
#include <LmCore.h>
#include <LmEventBus.h>
#include <LmPresenterClass.h>
#include <VantorConstants.h>
#include <VantorFields.h>
#include <VantorUtils.h>
#include <ZentraFields.h>

#include <QRegularExpression>
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

} // namespace

class TestEvents : public QObject
{
    Q_OBJECT

private slots:
    void init() { g_calls.clear(); }

    // A name keeps its first id and is logged once, a key that looks like place markers
    // exactly as it is.
    void eventIdsStartAfterBaseAndAreLoggedOnce()
    {
        static QString line;
        static int logged = 0;
        static QtMessageHandler previous = nullptr;
        line = QStringLiteral("VantorUtils_p::GetKorvoEventMsgIdByStr Vantor Event MsgId created, msgKey: a%1%2, msgId: ")
               + QString::number(VantorEventMsgID::KORVO_BASE_TYPE + 1);
        previous = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& msg) {
            if (msg == line)
                ++logged;
            previous(type, context, msg);
        });
        VantorEventIdRegistry registry;
        QCOMPARE(registry.GetKorvoEventMsgIdByStr("a%1%2"), VantorEventMsgID::KORVO_BASE_TYPE + 1);
        QCOMPARE(registry.GetKorvoEventMsgIdByStr("a%1%2"), VantorEventMsgID::KORVO_BASE_TYPE + 1);
        qInstallMessageHandler(previous);
        QCOMPARE(logged, 1);
        QCOMPARE(registry.GetKorvoEventMsgIdByStr("second"), VantorEventMsgID::KORVO_BASE_TYPE + 2);
        QCOMPARE(registry.GetKorvoEventMsgIdByStr(""), VantorEventMsgID::KORVO_BASE_TYPE + 3);
    }

    // Eight threads ask for overlapping names at once: no id is ever handed out for two
    // names (a caller that raced on a name may hold an id overwritten since), and in the
    // end every name has its own id.
    void eventIdsFromManyThreads()
    {
        VantorEventIdRegistry registry;
        constexpr int threadCount = 8;
        constexpr int names = 200;
        std::vector<std::vector<int>> seen(threadCount, std::vector<int>(names));
        std::vector<std::thread> threads;
        for (int t = 0; t < threadCount; ++t) {
            threads.emplace_back([&registry, &seen, t]() {
                for (int i = 0; i < names; ++i) {
                    const int n = (i * 7 + t * 13) % names;
                    seen[t][n] = registry.GetKorvoEventMsgIdByStr(QStringLiteral("name%1").arg(n));
                }
            });
        }
        for (auto& th : threads)
            th.join();

        QHash<int, int> nameOfId;
        for (int t = 0; t < threadCount; ++t) {
            for (int n = 0; n < names; ++n) {
                QVERIFY(seen[t][n] > VantorEventMsgID::KORVO_BASE_TYPE);
                QCOMPARE(nameOfId.value(seen[t][n], n), n);
                nameOfId.insert(seen[t][n], n);
            }
        }
        QSet<int> finalIds;
        for (int n = 0; n < names; ++n)
            finalIds.insert(registry.GetKorvoEventMsgIdByStr(QStringLiteral("name%1").arg(n)));
        QCOMPARE(finalIds.size(), names);
    }

    // Events, business messages and operation records: one envelope on the event bus, field
    // by field. Records always go through the library's own presenter.
    void eventEnvelopes_data()
    {
        QTest::addColumn<QString>("call"); // the call and its arguments, "-" for an empty one
        QTest::addColumn<QVariant>("msg"); // what an event carries, or the message expected
        QTest::addColumn<QString>("srcId");
        QTest::addColumn<int>("type");

        const int named = VantorUtils::GetKorvoEventMsgIdByStr("tst_events/named");
        const int busi = VantorUtils::GetKorvoEventMsgIdByStr(Korvo_Keys::EventMsgName::BUSI_MSG_ADD);
        const QString own = QStringLiteral("plugin-7");
        const QString library = QStringLiteral("globalQuery");
        QVariantMap busiRow{
            {Vantor_Fields::System::BusiMsgLevel, "warn"},     {Vantor_Fields::System::BusiMsgType, "order"},
            {Vantor_Fields::System::BusiMsgSubType, "reject"}, {Zentra_Fields::System::textDescription, "委托失败"},
            {Vantor_Fields::System::itemName, "symbol"},       {Vantor_Fields::System::itemValue, "600000.SH"},
        };
        const auto record = [](const QString& menu, const QString& status) {
            QVariantMap operation{{"object", "buyButton"}, {"type", "click"}, {"text", "买入"}};
            if (!status.isEmpty())
                operation.insert("status", status);
            return QVariant(QVariantMap{{Vantor_Fields::System::itemType, Zentra_Values::ClinetInfoUpload::UserOperRecord},
                                        {Vantor_Fields::System::itemValue, menu},
                                        {Vantor_Fields::System::itemValueEx, operation}});
        };
        QTest::newRow("event by id, own presenter") << "id own" << QVariant(QVariantMap{{"score", 87}}) << own << 4242;
        QTest::newRow("event by id, default presenter") << "id -" << QVariant("text") << library << 4242;
        QTest::newRow("event by name, own presenter") << "name own" << QVariant(QVariantList{1, 2}) << own << named;
        QTest::newRow("event by name, default presenter") << "name -" << QVariant() << library << named;
        QTest::newRow("business message, no account") << "busi own" << QVariant(QVariantList{busiRow}) << own << busi;
        busiRow.insert(Zentra_Fields::UserAccount::tradingAccount, "880001");
        QTest::newRow("business message, account") << "busi - 880001" << QVariant(QVariantList{busiRow}) << library << busi;
        QTest::newRow("record, status and menu") << "record ok 交易/买入" << record("交易/买入", "ok") << library << 217088;
        QTest::newRow("record, no status") << "record - 交易/卖出" << record("交易/卖出", "") << library << 217088;
        QTest::newRow("record, current menu") << "record failed" << record("查询/持仓", "failed") << library << 217088;
    }

    void eventEnvelopes()
    {
        QFETCH(QString, call);
        QFETCH(QVariant, msg);
        const QStringList words = call.split(' ').replaceInStrings(QRegularExpression("^-$"), QString());
        LmPresenterClass presenter(QStringLiteral("plugin-7"));
        LmPresenterClass* used = words[1] == "own" ? &presenter : nullptr;
        LmCore::instance()->setCommonInfo(Constants::CURRENT_MENU, QStringLiteral("查询/持仓"));
        QSignalSpy bus(LmEventBus::instance(), &LmEventBus::eventPut);
        if (words[0] == "id")
            QCOMPARE(VantorUtils::SendEventMsg(used, 4242, msg), 0);
        else if (words[0] == "name")
            QCOMPARE(VantorUtils::SendEventMsg(used, QStringLiteral("tst_events/named"), msg), 0);
        else if (words[0] == "busi")
            VantorUtils::PutBusiMsg(used, "warn", "委托失败", "order", "reject", "symbol", "600000.SH", words.value(2));
        else
            VantorUtils::RecordWidgetOperation("buyButton", "click", "买入", words[1], words.value(2));
        QCOMPARE(bus.size(), 1);
        QTEST(bus.first().at(0).toString(), "srcId");
        QCOMPARE(bus.first().at(1).userType(), int(QMetaType::Int));
        QTEST(bus.first().at(1).toInt(), "type");
        QVariant sent = bus.first().at(2);
        if (words[0] == "record") { // the operation's time of day, then the rest
            QVariantMap record = sent.toMap();
            QVariantMap operation = record.value(Vantor_Fields::System::itemValueEx).toMap();
            const QString time = operation.take("time").toString();
            QVERIFY2(QRegularExpression("^\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d$").match(time).hasMatch(), qPrintable(time));
            record.insert(Vantor_Fields::System::itemValueEx, operation);
            sent = record;
        }
        QCOMPARE(sent, msg);
    }

    // Steps are "+name" (add) or "-name" (remove), each answered as `answers` says (y/n);
    // then one push, which makes the calls given.
    void registration_data()
    {
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("answers");
        QTest::addColumn<QString>("calls");
        QTest::newRow("order of registration") << "+B +A +C" << "yyy" << "B A C";
        QTest::newRow("same function twice") << "+A +A" << "yn" << "A";
        QTest::newRow("second lambda refused") << "+lambda +other +A" << "yny" << "lambda A";
        QTest::newRow("bound function counts as a lambda") << "+bound +lambda" << "yn" << "A";
        QTest::newRow("remove one function") << "+A +B -A" << "yyy" << "B";
        QTest::newRow("removing a lambda removes any lambda") << "+lambda +B -other +other" << "yyyy" << "B other";
        QTest::newRow("remove unknown answers true") << "-C +C" << "yy" << "C";
        // An empty callback wraps no plain function either: it is kept, never called, and
        // counts as the same as a lambda.
        QTest::newRow("empty callback kept, never called") << "+ +lambda +A" << "yny" << "A";
    }

    void registration()
    {
        QFETCH(QString, steps);
        QFETCH(QString, answers);
        const QMap<QString, VantorEntrustPushHub::EntrustPushFunc> funcs{
            {"A", pushA}, {"B", pushB}, {"C", pushC}, {"", {}}, {"bound", std::bind(pushA, std::placeholders::_1)},
            {"lambda", [](const Push&) { g_calls << "lambda"; }}, {"other", [](const Push&) { g_calls << "other"; }}};
        VantorEntrustPushHub hub;
        const QStringList list = steps.split(' ');
        for (int i = 0; i < list.size(); ++i)
            QVERIFY2(hub.RegisterEntrustPushFunc(funcs[list[i].mid(1)], list[i].startsWith('+')) == (answers[i] == 'y'),
                     qPrintable(list[i]));
        hub.ProcessEntrustPush(Push{{"orderID", "1"}});
        QTEST(g_calls.join(' '), "calls");
    }

    // On the library's own receivers, untouched until here: MQ slots before file-trader
    // ones, nothing before registration, an empty argument keeps its slot; the net-data
    // call has no guard and throws without a callback.
    void mqAndFileTraderSlots()
    {
        VantorUtils::ProcessEntrustPushToMQ(Push{});
        VantorUtils::ProcessOrderResponsePushToMQ(QVariant(1));
        QVERIFY_EXCEPTION_THROWN(VantorUtils::SendMQNetData("a", 1, 2), std::bad_function_call);

        VantorUtils::RegisterFileTraderEntrustPushFunc([](const Push&) { g_calls << "file entrust"; },
                                                       [](const QVariant& v) { g_calls << "file response " + v.toString(); });
        VantorUtils::RegisterMQEntrustPushFunc([](const Push&) { g_calls << "mq entrust"; }, nullptr);
        VantorUtils::RegisterMQNetDataFunc([](const QString& a, const QVariant& b, const QVariant& c) {
            g_calls << QStringList{a, b.toString(), c.toString()}.join(' ');
        });
        VantorUtils::ProcessEntrustPushToMQ(Push{});
        VantorUtils::ProcessOrderResponsePushToMQ(QVariant(2));
        VantorUtils::SendMQNetData("topic", 5, "x");
        QCOMPARE(g_calls, (QStringList{"mq entrust", "file entrust", "file response 2", "topic 5 x"}));

        g_calls.clear();
        VantorUtils::RegisterMQEntrustPushFunc(nullptr, [](const QVariant& v) { g_calls << "mq response " + v.toString(); });
        VantorUtils::RegisterFileTraderEntrustPushFunc(nullptr, nullptr);
        VantorUtils::ProcessEntrustPushToMQ(Push{});
        VantorUtils::ProcessOrderResponsePushToMQ(QVariant(3));
        QCOMPARE(g_calls, (QStringList{"mq entrust", "file entrust", "mq response 3", "file response 3"}));

        // The entrust push list behind the exported calls.
        g_calls.clear();
        QVERIFY(VantorUtils::RegisterEntrustPushFunc(pushC, true));
        QVERIFY(!VantorUtils::RegisterEntrustPushFunc(pushC, true));
        VantorUtils::ProcessEntrustPush(Push{});
        QVERIFY(VantorUtils::RegisterEntrustPushFunc(pushC, false));
        VantorUtils::ProcessEntrustPush(Push{});
        QCOMPARE(g_calls, QStringList{"C"});
    }

    // A slot's callback may put another callback in its slot while it runs (a bridge that
    // reconnects, say): it runs to its end with everything it holds, and the next push
    // reaches the new one.
    void slotReplacedByItsOwnCallback_data()
    {
        QTest::addColumn<QString>("slot");
        QTest::newRow("MQ entrust") << "mq entrust";
        QTest::newRow("file-trader order response") << "file response";
        QTest::newRow("MQ net data") << "net data";
    }

    void slotReplacedByItsOwnCallback()
    {
        QFETCH(QString, slot);
        bool running = false;
        bool destroyedWhileRunning = false;
        VantorEntrustPushHub hub;
        QStringList calls;
        std::function<void(const QString&)> install = [&](const QString& tag) {
            // Notes whether the callback that holds it is destroyed while it runs.
            const std::shared_ptr<void> held(nullptr, [&](void*) { destroyedWhileRunning |= running; });
            const auto body = [&, held, tag]() {
                running = true;
                if (!tag.endsWith(QLatin1String("next")))
                    install(tag + " next");
                calls << tag;
                running = false;
            };
            if (slot == "mq entrust")
                hub.RegisterMQEntrustPushFunc([body](const Push&) { body(); }, nullptr);
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

    // A callback may push again on the same thread without waiting on itself, and change
    // the registrations: each change is answered as if made at once, and counts from the
    // next push, even when the callback then throws.
    void changesFromInsideACallback()
    {
        VantorEntrustPushHub hub;
        int depth = 0;
        QVERIFY(hub.RegisterEntrustPushFunc(pushA, true));
        QVERIFY(hub.RegisterEntrustPushFunc([&](const Push& push) {
            g_calls << "lambda";
            if (push.contains("throw")) {
                hub.RegisterEntrustPushFunc(pushB, false);
                throw std::runtime_error("plug-in fault");
            }
            if (++depth == 1) {
                hub.ProcessEntrustPush(Push{});
                QVERIFY(!hub.RegisterEntrustPushFunc(pushA, true)); // still there until the push ends
                QVERIFY(hub.RegisterEntrustPushFunc(pushA, false));
                QVERIFY(hub.RegisterEntrustPushFunc(pushA, true)); // gone by then, so it may come back
                QVERIFY(hub.RegisterEntrustPushFunc(pushB, true));
            }
        }, true));
        QVERIFY(hub.RegisterEntrustPushFunc(pushC, true));
        hub.ProcessEntrustPush(Push{});
        QCOMPARE(g_calls, (QStringList{"A", "lambda", "A", "lambda", "C", "C"}));
        g_calls.clear();
        hub.ProcessEntrustPush(Push{});
        QCOMPARE(g_calls, (QStringList{"lambda", "C", "A", "B"})); // A removed and added back: now last but one
        QVERIFY_EXCEPTION_THROWN(hub.ProcessEntrustPush(Push{{"throw", true}}), std::runtime_error);
        QVERIFY(hub.RegisterEntrustPushFunc(pushB, true)); // B was removed all the same
    }

    // Once a removal returns, the removed callback runs nowhere: a plug-in may then free
    // what the callback uses.
    void removalWaitsForPushesInProgress()
    {
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
        hub.ProcessEntrustPush(Push{});
        QVERIFY(g_calls.isEmpty());
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
                while (!stop.load()) {
                    hub.ProcessEntrustPush(Push{{"orderID", "1"}});
                    ++pushes;
                }
            });
        }
        for (int i = 0; i < 2000; ++i) {
            hub.RegisterEntrustPushFunc(countY, true);
            hub.RegisterEntrustPushFunc([](const Push&) {}, i % 2 == 0);
            hub.RegisterEntrustPushFunc(countY, false);
        }
        stop = true;
        for (auto& th : dispatchers)
            th.join();
        // countX stayed registered all along: exactly one call per push.
        QCOMPARE(g_countX.load(), pushes.load());
        QVERIFY(g_countY.load() <= pushes.load());
    }
};

QTEST_MAIN(TestEvents)
#include "tst_events.moc"
