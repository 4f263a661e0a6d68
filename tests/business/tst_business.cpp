#include "business/VantorBusiUtils_p.h"
#include "business/VantorQuantityRules.h"

#include <CDataBase.h>
#include <VantorBusiUtils.h>
#include <VantorUtils.h>

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>

using Dict = QMap<QString, QVariant>;
using Qtys = QList<qint64>;
using Doubles = QList<double>;
using Ints = QList<int>;

namespace {
// A deployment of the test's own, with broken side-union entries among good ones.
const char testConfig[] = R"({
  "CustomerExchange2Broker": {"SH": "SH", "XSHG": "SH", "SZ": "SZ", "BJ": "BJ", "HK": "HK", "US": "US", "OTC": "OTC"},
  "CodeLengthDict": {"SH": "6", "SZ": "6", "BJ": "6", "HK": "5", "OTC": "6", "ZZ": "2000000000"},
  "Markert2SymbolPost": {"SH": "SH", "SZ": "SZ", "BJ": "BJ", "HK": "HK", "US": "US"},
  "ExchangeChineseName": {"SZ": "深交所", "BJ": "北交所"},
  "symbolPost": {"NQ": "股转系统", "SZ": "深市"},
  "MarketPriceTypeDict": {"C": "1", "A": "1", "B": "2"},
  "SideUnionName": {"TestOnly": "测试方向"},
  "NewBondQuotaOn": {"NewBondQuotaOn": "1"},
  "SideUnionOrderDict": {
    "TwoParts": "1|0", "EmptyMiddle": "1||0", "SixParts": "1|0|0|O|P|X", "Ref": "1|0|_Prop", "RefMissing": "1|0|_Nope",
    "RefPartial": "1|0|_Partial", "RefNum": "1|0|0||_Num",
    "_Prop": "exchange_SH:A&SZ:B", "_NoUnderscore": "exchangeSH:A", "_Partial": "exchange_SH:A&SZ&BJ:C&SH:D",
    "_Num": "market_1:X&2:Y_ignored"
  },
  "SideUnionCondDict": {"OnePart": "2", "SixParts": "1|2|3|4|5|6", "Five": "1|2|3|4|5"}
})";

// The business warnings an action logs. Every one is expected from the dictionaries'
// constructor, whose file, line and function the lines carry; one that names another
// function is marked.
QStringList g_warnings;
QtMessageHandler g_previousHandler = nullptr;

QStringList warningsOf(const std::function<void()>& action)
{
    g_warnings.clear();
    g_previousHandler = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& text) {
        if (type != QtWarningMsg || qstrcmp(context.category, "vantor.business") != 0)
            return g_previousHandler(type, context, text);
        const bool fromConstructor = QByteArray(context.function).contains("VantorBusiUtils_p::VantorBusiUtils_p()");
        g_warnings.append(fromConstructor ? text : "[from " + QString::fromLatin1(context.function) + "] " + text);
    });
    action();
    qInstallMessageHandler(g_previousHandler);
    return g_warnings;
}

QString orderDictWarning(const QString& key, const QString& raw)
{
    return "VantorBusiUtils_p::VantorBusiUtils_p " + QStringLiteral("SideUnionOrderDict配置损坏，字段%1缺失必要值，内容：%2").arg(key, raw);
}

// The side-union fields of a map in their order, "-" for one left out: "1|-|0".
QString fieldsOf(const Dict& d)
{
    static const QStringList names{"side", "entrustType", "entrustProp", "positionEffect", "positionProp"};
    QStringList values;
    for (const QString& name : names)
        values << d.value(name, "-").toString();
    if (d.size() != names.size() - values.count("-"))
        return QStringLiteral("unexpected fields");
    while (!values.isEmpty() && values.last() == "-")
        values.removeLast();
    return values.join('|');
}
} // namespace

class TestBusiness : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<VantorBusiUtils_p> m_dicts;
    QStringList m_loadWarnings;

    void pointStoreAtTestConfig()
    {
        QFile f(m_dir.filePath("business.json"));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(testConfig);
        f.close();
        qputenv("VANTOR_STATIC_CONFIG", f.fileName().toUtf8());
        CDataBase::GetInstance()->reload();
        QCOMPARE(CDataBase::GetInstance()->source(), f.fileName());
    }

    static void pointStoreAtEmbeddedDefault()
    {
        qunsetenv("VANTOR_STATIC_CONFIG");
        CDataBase::GetInstance()->reload();
    }

private slots:
    void initTestCase()
    {
        qputenv("VANTOR_APP_DIR", m_dir.path().toUtf8()); // no cfg/ there: the embedded default
        pointStoreAtTestConfig();
        m_loadWarnings = warningsOf([this] { m_dicts = std::make_unique<VantorBusiUtils_p>(); });
        pointStoreAtEmbeddedDefault();
    }

    void cleanup() { pointStoreAtEmbeddedDefault(); }

    void brokenSideUnionEntriesAreLeftOutWithOneWarningEach()
    {
        const QStringList expected{
            orderDictWarning("SixParts", "1|0|0|O|P|X"),
            orderDictWarning("TwoParts", "1|0"),
            orderDictWarning("_NoUnderscore", "exchangeSH:A"),
            orderDictWarning("_Partial", "exchange_SH:A&SZ&BJ:C&SH:D"),
            "VantorBusiUtils_p::VantorBusiUtils_p "
                + QStringLiteral("SideUnionCondDict配置损坏，字段SixParts缺失必要值，内容：1|2|3|4|5|6"),
        };
        QCOMPARE(m_loadWarnings, expected);
        QVERIFY(m_dicts->isNewBondQuotaOn());
    }

    // For "order", "second" is the context, "field=value" (a number is put as an int).
    void dictionaryLookups_data()
    {
        QTest::addColumn<QString>("lookup");
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QString>("expected");
        QTest::newRow("empty middle part left out") << "order" << "EmptyMiddle" << "" << "1|-|0";
        QTest::newRow("two parts rejected") << "order" << "TwoParts" << "" << "";
        QTest::newRow("six parts rejected") << "order" << "SixParts" << "" << "";
        QTest::newRow("reference chosen by context") << "order" << "Ref" << "exchange=SZ" << "1|0|B";
        QTest::newRow("selector absent from context") << "order" << "Ref" << "market=SZ" << "1|0|";
        QTest::newRow("no choice for context value") << "order" << "Ref" << "exchange=HK" << "1|0|";
        QTest::newRow("undefined reference") << "order" << "RefMissing" << "exchange=SZ" << "1|0|";
        QTest::newRow("good choice kept beside bad one") << "order" << "RefPartial" << "exchange=BJ" << "1|0|C";
        QTest::newRow("later duplicate choice wins") << "order" << "RefPartial" << "exchange=SH" << "1|0|D";
        QTest::newRow("selector value read as text, parts past the second ignored")
            << "order" << "RefNum" << "market=2" << "1|0|0|-|Y";
        QTest::newRow("conditions of one part") << "cond" << "OnePart" << "" << "2";
        QTest::newRow("conditions of five parts") << "cond" << "Five" << "" << "1|2|3|4|5";
        QTest::newRow("conditions of six parts rejected") << "cond" << "SixParts" << "" << "";
        QTest::newRow("normalise lower case") << "normalise" << "xshg" << "" << "SH";
        QTest::newRow("pad short code") << "fill" << "1234" << "SZ" << "001234";
        QTest::newRow("pad uses the exchange as given") << "fill" << "1234" << "sz" << "1234";
        QTest::newRow("pad without length") << "fill" << "1234" << "US" << "1234";
        QTest::newRow("absurd length: no padding") << "fill" << "1234" << "ZZ" << "1234";
        QTest::newRow("symbol from alias") << "assemble" << "600000" << "xshg" << "600000.SH";
        QTest::newRow("symbol padded") << "assemble" << "700" << "hk" << "00700.HK";
        QTest::newRow("symbol of unknown exchange") << "assemble" << "600000" << "XX" << "600000";
        QTest::newRow("symbol without suffix") << "assemble" << "1234" << "OTC" << "1234";
        QTest::newRow("suffix ignored off BJ") << "name" << "SZ" << "NQ" << "深交所";
        QTest::newRow("BJ named by suffix") << "name" << "BJ" << "NQ" << "股转系统";
        QTest::newRow("BJ without suffix") << "name" << "BJ" << "" << "北交所";
        QTest::newRow("price type to broker") << "price" << "A" << "broker" << "1";
        QTest::newRow("price type back: last customer type in key order wins") << "price" << "1" << "" << "C";
    }

    void dictionaryLookups()
    {
        QFETCH(QString, lookup);
        QFETCH(QString, first);
        QFETCH(QString, second);
        QString actual;
        if (lookup == "order") {
            bool isInt = false;
            const int n = second.section('=', 1).toInt(&isInt);
            const QString value = second.section('=', 1);
            const Dict context{{second.section('=', 0, 0), isInt ? QVariant(n) : QVariant(value)}};
            actual = fieldsOf(m_dicts->GetOrderMapBySideUnion(first, second.isEmpty() ? Dict() : context));
        } else if (lookup == "cond") {
            actual = fieldsOf(m_dicts->GetCondMapBySideUnion(first));
        } else if (lookup == "normalise") {
            actual = m_dicts->NormalizeSecurityExchange(first);
        } else if (lookup == "fill") {
            actual = m_dicts->FillSecurityIDByZeros(first, second);
        } else if (lookup == "assemble") {
            actual = m_dicts->AssembleSymbolBySecurityIDAndExchange(first, second);
        } else if (lookup == "price") {
            actual = m_dicts->TransMarketPriceTypeFromCustomer(first, second == "broker");
        } else {
            actual = m_dicts->GetExchangeName(first, second);
        }
        QTEST(actual, "expected");
    }

    void cancelableStatuses()
    {
        const QStringList cancelable{"pendingNew", "new", "pendingCancel", "partiallyFilled", "partiallyFilledForCancel"};
        QCOMPARE(VantorBusiUtils::GetCancelableOrderStatusList(), cancelable);
        for (const QString& status : cancelable)
            QVERIFY(VantorBusiUtils::IsOrderStatusCancelable(status));
        for (const char* status : {"filled", "canceled", "rejected", "New", ""})
            QVERIFY2(!VantorBusiUtils::IsOrderStatusCancelable(status), status);
    }

    void sideUnionNameIsReadAtEachCall()
    {
        pointStoreAtTestConfig();
        QCOMPARE(m_dicts->GetSideUnionChineseName("TestOnly"), QStringLiteral("测试方向"));
        pointStoreAtEmbeddedDefault();
        QCOMPARE(m_dicts->GetSideUnionChineseName("TestOnly"), QString());
    }

    // The process-wide dictionaries come from the embedded default deployment.
    void embeddedDefault()
    {
        QCOMPARE(VantorBusiUtils::AssembleSymbolBySecurityIDAndExchange("600000", "sh"), QStringLiteral("600000.SH"));
        QCOMPARE(VantorBusiUtils::AssembleSymbolBySecurityIDAndExchange("1", "sz"), QStringLiteral("000001.SZ"));
        QCOMPARE(VantorBusiUtils::GetExchangeName("SZ"), QStringLiteral("深圳证券交易所"));
        QCOMPARE(VantorBusiUtils::NormalizeSecurityExchange("xhkg"), QStringLiteral("HK"));

        // The deployment data loads cleanly, and every side union is named, has its
        // conditions, and resolves to at least three order fields, none of them empty.
        std::unique_ptr<VantorBusiUtils_p> dicts;
        QCOMPARE(warningsOf([&] { dicts = std::make_unique<VantorBusiUtils_p>(); }), QStringList());
        const auto unions = CDataBase::GetInstance()->GetStaticValuesBySection("SideUnionOrderDict").keys();
        QVERIFY(unions.size() > 10);
        for (const QString& sideUnion : unions) {
            const Dict order = dicts->GetOrderMapBySideUnion(sideUnion, {{"exchange", "SH"}});
            QVERIFY2(sideUnion.startsWith('_')
                         || (!dicts->GetSideUnionChineseName(sideUnion).isEmpty() && !dicts->GetCondMapBySideUnion(sideUnion).isEmpty()
                             && order.size() >= 3 && !order.values().contains(QString())),
                     qPrintable(sideUnion));
        }
    }

    // ---- Quantities and profit ----

    // Strategy -1 asks GetSoldableQty of the first holding.
    void soldableQty_data()
    {
        QTest::addColumn<double>("total");
        QTest::addColumn<Doubles>("holdings");
        QTest::addColumn<int>("minimum");
        QTest::addColumn<int>("strategy");
        QTest::addColumn<Qtys>("expected");
        QTest::newRow("odd lot replaces wanted remainder") << 350.0 << Doubles{1250} << 100 << -1 << Qtys{350};
        QTest::newRow("smaller odd lot") << 350.0 << Doubles{1230} << 100 << -1 << Qtys{330};
        QTest::newRow("remainder below odd lot") << 320.0 << Doubles{1230} << 100 << -1 << Qtys{300};
        QTest::newRow("all of an odd holding") << 2000.0 << Doubles{1250} << 100 << -1 << Qtys{1250};
        QTest::newRow("below minimum") << 50.0 << Doubles{1000} << 100 << -1 << Qtys{0};
        QTest::newRow("sequential") << 1000.0 << Doubles{300, 1250} << 100 << 0 << Qtys{300, 700};
        QTest::newRow("sequential, later holdings get 0") << 1050.0 << Doubles{1250, 300} << 100 << 0 << Qtys{1050, 0};
        QTest::newRow("sequential, rest below minimum") << 1200.0 << Doubles{1000, 300} << 300 << 0 << Qtys{1000, 0};
        QTest::newRow("round lot") << 1000.0 << Doubles{350, 1250} << 100 << 1 << Qtys{300, 700};
        QTest::newRow("round lot drops part of a step") << 1050.0 << Doubles{350, 1250} << 100 << 1 << Qtys{300, 700};
        QTest::newRow("round lot ignores minimum") << 1200.0 << Doubles{1000, 300} << 300 << 1 << Qtys{1000, 200};
        QTest::newRow("unknown strategy") << 1000.0 << Doubles{300} << 100 << 2 << Qtys{};
    }

    void soldableQty()
    {
        QFETCH(double, total);
        QFETCH(Doubles, holdings);
        QFETCH(int, minimum);
        QFETCH(int, strategy);
        if (strategy < 0)
            QTEST(Qtys{VantorBusiUtils::GetSoldableQty(total, holdings.first(), 100, minimum)}, "expected");
        else
            QTEST(VantorBusiUtils::GetSoldableQtyList(total, holdings, 100, minimum, SoldQtyAllocStrategy(strategy)),
                  "expected");
    }

    void splitBigNum_data()
    {
        QTest::addColumn<qint64>("total");
        QTest::addColumn<int>("maxPiece");
        QTest::addColumn<int>("minPiece");
        QTest::addColumn<Ints>("expected");
        QTest::newRow("small last piece raised") << qint64(1050) << 500 << 100 << Ints{500, 450, 100};
        QTest::newRow("exact") << qint64(1000) << 500 << 100 << Ints{500, 500};
        QTest::newRow("rest above minimum") << qint64(1200) << 500 << 100 << Ints{500, 500, 200};
        QTest::newRow("one step over") << qint64(600) << 500 << 200 << Ints{400, 200};
        QTest::newRow("one piece") << qint64(400) << 500 << 100 << Ints{400};
        QTest::newRow("no maximum") << qint64(400) << 0 << 100 << Ints{400};
        // No piece can hold these: refused rather than wrapped around.
        QTest::newRow("no maximum, total beyond an int") << qint64(3000000000) << 0 << 100 << Ints{};
        QTest::newRow("total below any int") << -(qint64(1) << 40) << 500 << 100 << Ints{};
        QTest::newRow("too many pieces refused") << (qint64(1) << 40) << 1 << 0 << Ints{};
        // A minimum above the maximum cannot be met: the pieces stay within the maximum.
        QTest::newRow("minimum above maximum, one over") << qint64(510) << 500 << 600 << Ints{500, 10};
        QTest::newRow("minimum above maximum, several") << qint64(1050) << 500 << 520 << Ints{500, 500, 50};
    }

    void splitBigNum()
    {
        QFETCH(qint64, total);
        QFETCH(int, maxPiece);
        QFETCH(int, minPiece);
        QTEST(VantorUtils::SplitBigNumIntoSmallNumList(total, maxPiece, minPiece), "expected");
    }

    void roundingAndExtremes()
    {
        QCOMPARE(VantorBusiUtils::GetFloorByStepAndMinLimit(350, 100, 100), qint64(300));
        QCOMPARE(VantorBusiUtils::GetFloorByStepAndMinLimit(99.9999995, 100, 100), qint64(100));
        QCOMPARE(VantorBusiUtils::GetFloorByStepAndMinLimit(99.5, 100, 100), qint64(0));
        // Whole quantities survive representation error; halves are not rounded up.
        QCOMPARE(VantorQuantityRules::roundQty(2.5), qint64(2));
        QCOMPARE(VantorQuantityRules::roundQty(-0.5), qint64(0));
        QCOMPARE(VantorQuantityRules::roundQty(-2.9999995), qint64(-3));
        QCOMPARE(VantorQuantityRules::roundQty(std::nan("")), qint64(0));
        // Saturated holdings, a step of -1 and totals past the 64-bit range: answers stay
        // in range and nothing overflows (the sanitizer builds run this too).
        const qint64 max = std::numeric_limits<qint64>::max();
        const qint64 min = std::numeric_limits<qint64>::min();
        QCOMPARE(VantorQuantityRules::roundQty(1e300), max);
        QCOMPARE(VantorBusiUtils::GetSoldableQtyList(1e30, {-1e30, 1e30}, 100, 0, SoldQtyAllocSequential), Qtys({min, max}));
        QCOMPARE(VantorBusiUtils::GetSoldableQtyList(1e30, {-1e30, 1e30}, -1, 0, SoldQtyAllocRoundLot), Qtys({min, max}));
        QCOMPARE(VantorBusiUtils::GetSoldableQtyList(-1e30, {1e30}, -1, 0, SoldQtyAllocRoundLot), Qtys({0}));
        QCOMPARE(VantorBusiUtils::GetSoldableQty(5, -1e30, -1, 0), min);
        QCOMPARE(VantorBusiUtils::GetFloorByStepAndMinLimit(-1e30, -1, std::numeric_limits<int>::min()), qint64(0));
        QCOMPARE(VantorBusiUtils::GetFloorByStepAndMinLimit(1e30, -1, 0), max);
    }

    void profit()
    {
        // 1000 held from 10.00 to 10.50, 200 bought for 2080, 300 sold for 3060.
        QCOMPARE(VantorBusiUtils::calcTodayProfit(1000, 10.5, 10.0, 200, 2080, 300, 3060), 20.0 + 500.0 + 60.0);
        QString error = "untouched";
        QCOMPARE(VantorBusiUtils::calcTodayProfitRate(error, 900, 100, 0, 200), 0.1);
        QCOMPARE(VantorBusiUtils::calcTodayProfitRate(error, 1100, 100, 500, 0), 0.1);
        QCOMPARE(error, QStringLiteral("untouched"));
        QCOMPARE(VantorBusiUtils::calcTodayProfitRate(error, 100, 100, 500, 0), 0.0);
        QCOMPARE(error, QStringLiteral("持仓金额为0"));
    }

    // Random holdings, totals, steps and minimums: no holding gives more than it holds, no
    // allocation hands out more than the total, round-lot pieces are whole steps. Split
    // pieces add up to the total, none exceeds the maximum, and the last is not below the
    // minimum when the total allows.
    void randomQuantities()
    {
        for (quint32 seed = 1; seed <= 5000; ++seed) {
            QRandomGenerator rng(seed);
            const QByteArray where = "seed " + QByteArray::number(seed);
            const int step = QList<int>{1, 10, 100, 1000}.at(rng.bounded(4));
            const int minimum = rng.bounded(3) * step;
            Doubles holdings;
            qint64 held = 0;
            for (int i = rng.bounded(8); i >= 0; --i) {
                holdings << rng.bounded(100000) + (rng.bounded(2) ? 0.0 : rng.bounded(1.0));
                held += VantorQuantityRules::roundQty(holdings.last());
            }
            const double total = rng.bounded(double(held) * 1.2 + 1);
            for (int strategy : {-1, 0, 1}) { // -1: GetSoldableQty of the first holding
                const Qtys qtys = strategy < 0
                    ? Qtys{VantorBusiUtils::GetSoldableQty(total, holdings.first(), step, minimum)}
                    : VantorBusiUtils::GetSoldableQtyList(total, holdings, step, minimum, SoldQtyAllocStrategy(strategy));
                QCOMPARE(qtys.size(), strategy < 0 ? 1 : holdings.size());
                qint64 sum = 0;
                for (int i = 0; i < qtys.size(); ++i) {
                    QVERIFY2(qtys.at(i) >= 0 && qtys.at(i) <= VantorQuantityRules::roundQty(holdings.at(i)), where);
                    QVERIFY2(strategy != 1 || qtys.at(i) % step == 0, where);
                    sum += qtys.at(i);
                }
                QVERIFY2(sum <= VantorQuantityRules::roundQty(total), where);
            }

            const int maxPiece = 1 + rng.bounded(100000);
            const int minPiece = rng.bounded(2 * maxPiece + 1);
            const qint64 splitTotal = 1 + qint64(rng.bounded(double(maxPiece) * rng.bounded(1, 40)));
            const Ints pieces = VantorUtils::SplitBigNumIntoSmallNumList(splitTotal, maxPiece, minPiece);
            qint64 sum = 0;
            for (int piece : pieces) {
                QVERIFY2(piece > 0 && piece <= maxPiece, where);
                sum += piece;
            }
            QVERIFY2(sum == splitTotal, where);
            QVERIFY2(splitTotal < minPiece || minPiece > maxPiece || pieces.last() >= minPiece, where);
        }
    }
};

QTEST_GUILESS_MAIN(TestBusiness)
#include "tst_business.moc"
