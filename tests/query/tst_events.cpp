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
#include <QtTest>

#include <thread>
#include <vector>

namespace {

struct Envelope {
    QString srcId;
    QVariant type;
    QVariant msg;
};

// Collects the envelopes put on the event bus while it lives.
class BusRecorder
{
public:
    BusRecorder()
        : m_id(LmEventBus::instance()->subscribe([this](const QString& src, const QVariant& type, const QVariant& msg) {
            events.append({src, type, msg});
        }))
    {
    }
    ~BusRecorder() { LmEventBus::instance()->unsubscribe(m_id); }
    QList<Envelope> events;

private:
    int m_id;
};

// Counts the log lines that contain a text, and passes every line on.
class LogCounter
{
public:
    explicit LogCounter(const QString& needle)
    {
        s_needle = needle;
        s_count = 0;
        s_previous = qInstallMessageHandler(&LogCounter::handler);
    }
    ~LogCounter() { qInstallMessageHandler(s_previous); }
    int count() const { return s_count; }

private:
    static void handler(QtMsgType type, const QMessageLogContext& ctx, const QString& msg)
    {
        if (msg.contains(s_needle))
            ++s_count;
        s_previous(type, ctx, msg);
    }
    static inline QString s_needle;
    static inline int s_count = 0;
    static inline QtMessageHandler s_previous = nullptr;
};

} // namespace

class TestEvents : public QObject
{
    Q_OBJECT

private slots:
    // A name keeps its first id and is logged once, a key that looks like place markers
    // exactly as it is.
    void eventIdsStartAfterBaseAndAreLoggedOnce()
    {
        VantorEventIdRegistry registry;
        LogCounter log(QStringLiteral("VantorUtils_p::GetKorvoEventMsgIdByStr Vantor Event MsgId created, msgKey: a%1%2, msgId: ")
                       + QString::number(VantorEventMsgID::KORVO_BASE_TYPE + 1));
        QCOMPARE(registry.GetKorvoEventMsgIdByStr("a%1%2"), VantorEventMsgID::KORVO_BASE_TYPE + 1);
        QCOMPARE(registry.GetKorvoEventMsgIdByStr("a%1%2"), VantorEventMsgID::KORVO_BASE_TYPE + 1);
        QCOMPARE(log.count(), 1);
        QCOMPARE(registry.GetKorvoEventMsgIdByStr("second"), VantorEventMsgID::KORVO_BASE_TYPE + 2);
        QCOMPARE(registry.GetKorvoEventMsgIdByStr(""), VantorEventMsgID::KORVO_BASE_TYPE + 3);

        // The library's own registry hands out stable ids above the base as well.
        const int id = VantorUtils::GetKorvoEventMsgIdByStr("tst_events/stable");
        QVERIFY(id > VantorEventMsgID::KORVO_BASE_TYPE);
        QCOMPARE(VantorUtils::GetKorvoEventMsgIdByStr("tst_events/stable"), id);
    }

    // Eight threads ask for overlapping names at once: every name ends up with one id, no
    // two names share one, and a name asked again keeps its id.
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

        // Callers that raced on a name may hold an id that was overwritten since, but no
        // id was ever handed out for two names.
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

    void sendEventMsg_data()
    {
        QTest::addColumn<bool>("ownPresenter");
        QTest::addColumn<bool>("byName");
        QTest::addColumn<QVariant>("data");
        QTest::newRow("id, own presenter") << true << false << QVariant(QVariantMap{{"score", 87}});
        QTest::newRow("id, default presenter") << false << false << QVariant(QStringLiteral("text"));
        QTest::newRow("name, own presenter") << true << true << QVariant(QVariantList{1, 2});
        QTest::newRow("name, default presenter") << false << true << QVariant();
    }

    void sendEventMsg()
    {
        QFETCH(bool, ownPresenter);
        QFETCH(bool, byName);
        QFETCH(QVariant, data);
        LmPresenterClass presenter(QStringLiteral("plugin-7"));
        LmPresenterClass* used = ownPresenter ? &presenter : nullptr;
        const QString name = QStringLiteral("tst_events/%1").arg(QTest::currentDataTag());
        const int expectedType = byName ? VantorUtils::GetKorvoEventMsgIdByStr(name) : 4242;

        BusRecorder bus;
        const int result = byName ? VantorUtils::SendEventMsg(used, name, data)
                                  : VantorUtils::SendEventMsg(used, 4242, data);
        QCOMPARE(result, 0);
        QCOMPARE(bus.events.size(), 1);
        const Envelope& e = bus.events.first();
        QCOMPARE(e.srcId, ownPresenter ? QStringLiteral("plugin-7") : QStringLiteral("globalQuery"));
        QCOMPARE(e.type.userType(), int(QMetaType::Int));
        QCOMPARE(e.type.toInt(), expectedType);
        QCOMPARE(e.msg, data);
    }

    void putBusiMsg_data()
    {
        QTest::addColumn<QString>("account");
        QTest::newRow("with account") << "880001";
        QTest::newRow("without account") << "";
    }

    void putBusiMsg()
    {
        QFETCH(QString, account);
        LmPresenterClass presenter(QStringLiteral("plugin-busi"));
        BusRecorder bus;
        VantorUtils::PutBusiMsg(&presenter, "warn", "委托失败", "order", "reject", "symbol", "600000.SH", account);
        QCOMPARE(bus.events.size(), 1);
        const Envelope& e = bus.events.first();
        QCOMPARE(e.srcId, QStringLiteral("plugin-busi"));
        QCOMPARE(e.type.toInt(), VantorUtils::GetKorvoEventMsgIdByStr(Korvo_Keys::EventMsgName::BUSI_MSG_ADD));

        const QVariantList rows = e.msg.toList();
        QCOMPARE(rows.size(), 1);
        QVariantMap expected{
            {Vantor_Fields::System::BusiMsgLevel, "warn"},
            {Vantor_Fields::System::BusiMsgType, "order"},
            {Vantor_Fields::System::BusiMsgSubType, "reject"},
            {Zentra_Fields::System::textDescription, QStringLiteral("委托失败")},
            {Vantor_Fields::System::itemName, "symbol"},
            {Vantor_Fields::System::itemValue, "600000.SH"},
        };
        if (!account.isEmpty())
            expected.insert(Zentra_Fields::UserAccount::tradingAccount, account);
        QCOMPARE(rows.first().toMap(), expected);
    }

    void recordWidgetOperation_data()
    {
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("menu");
        QTest::addColumn<QString>("expectedMenu");
        QTest::newRow("status and menu") << "ok" << "交易/买入" << "交易/买入";
        QTest::newRow("no status") << "" << "交易/卖出" << "交易/卖出";
        QTest::newRow("current menu") << "failed" << "" << "查询/持仓";
    }

    void recordWidgetOperation()
    {
        QFETCH(QString, status);
        QFETCH(QString, menu);
        QFETCH(QString, expectedMenu);
        LmCore::instance()->setCommonInfo(Constants::CURRENT_MENU, QStringLiteral("查询/持仓"));
        BusRecorder bus;
        VantorUtils::RecordWidgetOperation("buyButton", "click", "买入", status, menu);
        QCOMPARE(bus.events.size(), 1);
        const Envelope& e = bus.events.first();
        QCOMPARE(e.srcId, QStringLiteral("globalQuery"));
        QCOMPARE(e.type.toInt(), 217088);

        const QVariantMap record = e.msg.toMap();
        QCOMPARE(record.keys(), (QStringList{Vantor_Fields::System::itemType, Vantor_Fields::System::itemValue,
                                             Vantor_Fields::System::itemValueEx}));
        QCOMPARE(record.value(Vantor_Fields::System::itemType).toString(),
                 QString(Zentra_Values::ClinetInfoUpload::UserOperRecord));
        QCOMPARE(record.value(Vantor_Fields::System::itemValue).toString(), expectedMenu);

        QVariantMap operation = record.value(Vantor_Fields::System::itemValueEx).toMap();
        const QString time = operation.take("time").toString();
        QVERIFY2(QRegularExpression("^\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d$").match(time).hasMatch(), qPrintable(time));
        QVariantMap expected{{"object", "buyButton"}, {"type", "click"}, {"text", QStringLiteral("买入")}};
        if (!status.isEmpty())
            expected.insert("status", status);
        QCOMPARE(operation, expected);
    }
};

QTEST_MAIN(TestEvents)
#include "tst_events.moc"
