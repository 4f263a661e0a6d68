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
    "Buy": "1|0|0", "TwoParts": "1|0", "EmptyMiddle": "1||0", "SixParts": "1|0|0|O|P|X",
    "Ref": "1|0|_Prop", "RefMissing": "1|0|_Nope",
    "RefNoUnderscore": "1|0|_NoUnderscore", "RefPartial": "1|0|_Partial", "RefNum": "1|0|0||_Num",
    "_Prop": "exchange_SH:A&SZ:B", "_NoUnderscore": "exchangeSH:A", "_Partial": "exchange_SH:A&SZ&BJ:C&SH:D",
    "_Num": "market_1:X&2:Y_ignored"
  },
  "SideUnionCondDict": {"Buy": "1|0", "OnePart": "2", "SixParts": "1|2|3|4|5|6", "Five": "1|2|3|4|5"}
})";

QStringList* g_warnings = nullptr;
QStringList g_warningFunctions; // the function each warning says it comes from
QtMessageHandler g_previousHandler = nullptr;

void collectBusinessWarnings(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtWarningMsg && qstrcmp(context.category, "vantor.business") == 0) {
        g_warnings->append(text);
        g_warningFunctions.append(QString::fromLatin1(context.function));
    } else
        g_previousHandler(type, context, text);
}

QStringList warningsOf(const std::function<void()>& action)
{
    QStringList warnings;
    g_warnings = &warnings;
    g_previousHandler = qInstallMessageHandler(collectBusinessWarnings);
    action();
    qInstallMessageHandler(g_previousHandler);
    return warnings;
}

QString orderDictWarning(const QString& key, const QString& raw)
{
    return "VantorBusiUtils_p::VantorBusiUtils_p " + QStringLiteral("SideUnionOrderDict配置损坏，字段%1缺失必要值，内容：%2").arg(key, raw);
}

Dict fields(const QStringList& values)
{
    static const QStringList names{"side", "entrustType", "entrustProp", "positionEffect", "positionProp"};
    Dict d;
    for (int i = 0; i < values.size(); ++i)
        if (values.at(i) != "-")
            d.insert(names.at(i), values.at(i));
    return d;
}
} // namespace

class TestBusiness : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<VantorBusiUtils_p> m_dicts;
    QStringList m_loadWarnings;
    QStringList m_loadWarningFunctions;

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
        g_warningFunctions.clear();
        m_loadWarnings = warningsOf([this] { m_dicts = std::make_unique<VantorBusiUtils_p>(); });
        m_loadWarningFunctions = g_warningFunctions;
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
        // Each line carries the constructor as the function it comes from.
        QCOMPARE(m_loadWarningFunctions.size(), expected.size());
        for (const QString& function : qAsConst(m_loadWarningFunctions))
            QVERIFY2(function.contains("VantorBusiUtils_p::VantorBusiUtils_p()"), qPrintable(function));
    }

    void sideUnionMaps_data()
    {
        QTest::addColumn<QString>("sideUnion");
        QTest::addColumn<Dict>("context"); // an empty context asks for the conditions
        QTest::addColumn<Dict>("expected");
        const Dict onSZ{{"exchange", "SZ"}};
        QTest::newRow("three parts") << "Buy" << Dict() << fields({"1", "0", "0"});
        QTest::newRow("empty middle part left out") << "EmptyMiddle" << Dict() << fields({"1", "-", "0"});
        QTest::newRow("two parts rejected") << "TwoParts" << Dict() << Dict();
        QTest::newRow("six parts rejected") << "SixParts" << Dict() << Dict();
        QTest::newRow("reference chosen by context") << "Ref" << onSZ << fields({"1", "0", "B"});
        QTest::newRow("selector absent from context") << "Ref" << Dict{{"market", "SZ"}} << fields({"1", "0", ""});
        QTest::newRow("no choice for context value") << "Ref" << Dict{{"exchange", "HK"}} << fields({"1", "0", ""});
        QTest::newRow("undefined reference") << "RefMissing" << onSZ << fields({"1", "0", ""});
        QTest::newRow("good choice kept beside bad one")
            << "RefPartial" << Dict{{"exchange", "BJ"}} << fields({"1", "0", "C"});
        QTest::newRow("later duplicate choice wins")
            << "RefPartial" << Dict{{"exchange", "SH"}} << fields({"1", "0", "D"});
        QTest::newRow("selector value read as text, parts past the second ignored")
            << "RefNum" << Dict{{"market", 2}} << fields({"1", "0", "0", "-", "Y"});
        QTest::newRow("conditions") << "Buy" << Dict() << fields({"1", "0"});
        QTest::newRow("conditions of one part") << "OnePart" << Dict() << fields({"2"});
        QTest::newRow("conditions of five parts") << "Five" << Dict() << fields({"1", "2", "3", "4", "5"});
        QTest::newRow("conditions of six parts rejected") << "SixParts" << Dict() << Dict();
    }

    void sideUnionMaps()
    {
        QFETCH(QString, sideUnion);
        QFETCH(Dict, context);
        QFETCH(Dict, expected);
        if (QByteArray(QTest::currentDataTag()).startsWith("conditions"))
            QCOMPARE(m_dicts->GetCondMapBySideUnion(sideUnion), expected);
        else
            QCOMPARE(m_dicts->GetOrderMapBySideUnion(sideUnion, context), expected);
    }

    void dictionaryLookups_data()
    {
        QTest::addColumn<QString>("lookup");
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QString>("expected");
        QTest::newRow("normalise lower case") << "normalise" << "xshg" << "" << "SH";
        QTest::newRow("pad short code") << "fill" << "1234" << "SZ" << "001234";
        QTest::newRow("pad uses the exchange as given") << "fill" << "1234" << "sz" << "1234";
        QTest::newRow("pad without length") << "fill" << "1234" << "US" << "1234";
        QTest::newRow("absurd length: no padding") << "fill" << "1234" << "ZZ" << "1234";
        QTest::newRow("symbol from alias") << "assemble" << "600000" << "xshg" << "600000.SH";
        QTest::newRow("symbol padded") << "assemble" << "700" << "hk" << "00700.HK";
        QTest::newRow("symbol without length") << "assemble" << "AAPL" << "us" << "AAPL.US";
        QTest::newRow("symbol of unknown exchange") << "assemble" << "600000" << "XX" << "600000";
        QTest::newRow("symbol without suffix") << "assemble" << "1234" << "OTC" << "1234";
        QTest::newRow("name by exchange") << "name" << "SZ" << "" << "深交所";
        QTest::newRow("suffix ignored off BJ") << "name" << "SZ" << "NQ" << "深交所";
        QTest::newRow("BJ named by suffix") << "name" << "BJ" << "NQ" << "股转系统";
        QTest::newRow("BJ without suffix") << "name" << "BJ" << "" << "北交所";
        QTest::newRow("BJ unknown suffix") << "name" << "BJ" << "ZZ" << "";
        QTest::newRow("price type to broker") << "price" << "A" << "broker" << "1";
        QTest::newRow("price type back: last customer type in key order wins") << "price" << "1" << "" << "C";
        QTest::newRow("price type back") << "price" << "2" << "" << "B";
        QTest::newRow("unknown price type") << "price" << "9" << "broker" << "";
    }

    void dictionaryLookups()
    {
        QFETCH(QString, lookup);
        QFETCH(QString, first);
        QFETCH(QString, second);
        QFETCH(QString, expected);
        QString actual;
        if (lookup == "normalise")
            actual = m_dicts->NormalizeSecurityExchange(first);
        else if (lookup == "fill")
            actual = m_dicts->FillSecurityIDByZeros(first, second);
        else if (lookup == "assemble")
            actual = m_dicts->AssembleSymbolBySecurityIDAndExchange(first, second);
        else if (lookup == "price")
            actual = m_dicts->TransMarketPriceTypeFromCustomer(first, second == "broker");
        else
            actual = m_dicts->GetExchangeName(first, second);
        QCOMPARE(actual, expected);
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

        // The deployment data loads cleanly, and every side union is complete and resolves.
        std::unique_ptr<VantorBusiUtils_p> dicts;
        QCOMPARE(warningsOf([&] { dicts = std::make_unique<VantorBusiUtils_p>(); }), QStringList());
        const auto unions = CDataBase::GetInstance()->GetStaticValuesBySection("SideUnionOrderDict").keys();
        QVERIFY(unions.size() > 10);
        for (const QString& sideUnion : unions) {
            if (sideUnion.startsWith('_'))
                continue;
            QVERIFY2(!dicts->GetSideUnionChineseName(sideUnion).isEmpty(), qPrintable(sideUnion));
            QVERIFY2(!dicts->GetCondMapBySideUnion(sideUnion).isEmpty(), qPrintable(sideUnion));
            const Dict order = dicts->GetOrderMapBySideUnion(sideUnion, {{"exchange", "SH"}});
            QVERIFY2(order.size() >= 3, qPrintable(sideUnion));
            for (const QVariant& value : order)
                QVERIFY2(!value.toString().isEmpty(), qPrintable(sideUnion));
        }
    }

    // ---- Quantities and profit ----

    void soldableQty_data()
    {
        QTest::addColumn<double>("wanted");
        QTest::addColumn<double>("available");
        QTest::addColumn<qint64>("expected");
        QTest::newRow("odd lot replaces wanted remainder") << 350.0 << 1250.0 << qint64(350);
        QTest::newRow("smaller odd lot") << 350.0 << 1230.0 << qint64(330);
        QTest::newRow("remainder below odd lot") << 320.0 << 1230.0 << qint64(300);
        QTest::newRow("all of an odd holding") << 2000.0 << 1250.0 << qint64(1250);
        QTest::newRow("below minimum") << 50.0 << 1000.0 << qint64(0);
        QTest::newRow("round holding") << 350.0 << 1000.0 << qint64(300);
    }

    void soldableQty()
    {
        QFETCH(double, wanted);
        QFETCH(double, available);
        QFETCH(qint64, expected);
        QCOMPARE(VantorBusiUtils::GetSoldableQty(wanted, available, 100, 100), expected);
    }

    void soldableQtyList_data()
    {
        QTest::addColumn<double>("total");
        QTest::addColumn<Doubles>("holdings");
        QTest::addColumn<int>("minimum");
        QTest::addColumn<int>("strategy");
        QTest::addColumn<Qtys>("expected");
        QTest::newRow("sequential") << 1000.0 << Doubles{300, 1250} << 100 << 0 << Qtys{300, 700};
        QTest::newRow("sequential, later holdings get 0") << 1050.0 << Doubles{1250, 300} << 100 << 0 << Qtys{1050, 0};
        QTest::newRow("sequential, rest below minimum") << 1200.0 << Doubles{1000, 300} << 300 << 0 << Qtys{1000, 0};
        QTest::newRow("round lot") << 1000.0 << Doubles{350, 1250} << 100 << 1 << Qtys{300, 700};
        QTest::newRow("round lot drops part of a step") << 1050.0 << Doubles{350, 1250} << 100 << 1 << Qtys{300, 700};
        QTest::newRow("round lot ignores minimum") << 1200.0 << Doubles{1000, 300} << 300 << 1 << Qtys{1000, 200};
        QTest::newRow("unknown strategy") << 1000.0 << Doubles{300} << 100 << 2 << Qtys{};
    }

    void soldableQtyList()
    {
        QFETCH(double, total);
        QFETCH(Doubles, holdings);
        QFETCH(int, minimum);
        QFETCH(int, strategy);
        QFETCH(Qtys, expected);
        QCOMPARE(VantorBusiUtils::GetSoldableQtyList(total, holdings, 100, minimum, SoldQtyAllocStrategy(strategy)),
                 expected);
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
        QFETCH(Ints, expected);
        QCOMPARE(VantorUtils::SplitBigNumIntoSmallNumList(total, maxPiece, minPiece), expected);
    }

    void floorAndRounding()
    {
        QCOMPARE(VantorBusiUtils::GetFloorByStepAndMinLimit(350, 100, 100), qint64(300));
        QCOMPARE(VantorBusiUtils::GetFloorByStepAndMinLimit(99.9999995, 100, 100), qint64(100));
        QCOMPARE(VantorBusiUtils::GetFloorByStepAndMinLimit(99.5, 100, 100), qint64(0));
        // whole quantities survive representation error; halves are not rounded up
        QCOMPARE(VantorQuantityRules::roundQty(2.5), qint64(2));
        QCOMPARE(VantorQuantityRules::roundQty(-0.5), qint64(0));
        QCOMPARE(VantorQuantityRules::roundQty(-2.9999995), qint64(-3));
        QCOMPARE(VantorQuantityRules::roundQty(std::nan("")), qint64(0));
        QCOMPARE(VantorQuantityRules::roundQty(1e300), std::numeric_limits<qint64>::max());
    }

    void absurdQuantitiesDoNotTrap()
    {
        // Saturated holdings, a step of -1 and totals past the 64-bit range: answers stay
        // in range and nothing overflows (the sanitizer builds run this too).
        const qint64 max = std::numeric_limits<qint64>::max();
        const qint64 min = std::numeric_limits<qint64>::min();
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

    void allocationProperties()
    {
        for (quint32 seed = 1; seed <= 2000; ++seed) {
            QRandomGenerator rng(seed);
            const int step = QList<int>{1, 10, 100, 1000}.at(rng.bounded(4));
            const int minimum = rng.bounded(3) * step;
            Doubles holdings;
            qint64 held = 0;
            for (int i = rng.bounded(8); i >= 0; --i) {
                holdings << rng.bounded(100000) + (rng.bounded(2) ? 0.0 : rng.bounded(1.0));
                held += VantorQuantityRules::roundQty(holdings.last());
            }
            const double total = rng.bounded(double(held) * 1.2 + 1);
            const qint64 wholeTotal = VantorQuantityRules::roundQty(total);
            for (int strategy : {0, 1}) {
                const Qtys qtys = VantorBusiUtils::GetSoldableQtyList(total, holdings, step, minimum,
                                                                      SoldQtyAllocStrategy(strategy));
                QCOMPARE(qtys.size(), holdings.size());
                qint64 sum = 0;
                for (int i = 0; i < qtys.size(); ++i) {
                    const qint64 holding = VantorQuantityRules::roundQty(holdings.at(i));
                    QVERIFY2(qtys.at(i) >= 0 && qtys.at(i) <= holding, qPrintable(QString::number(seed)));
                    if (strategy == 1)
                        QVERIFY2(qtys.at(i) % step == 0, qPrintable(QString::number(seed)));
                    sum += qtys.at(i);
                }
                QVERIFY2(sum <= wholeTotal, qPrintable(QString::number(seed)));
            }
            const qint64 one = VantorBusiUtils::GetSoldableQty(total, holdings.first(), step, minimum);
            QVERIFY(one >= 0 && one <= VantorQuantityRules::roundQty(holdings.first()));
        }
    }

    void splitProperties()
    {
        for (quint32 seed = 1; seed <= 5000; ++seed) {
            QRandomGenerator rng(seed);
            const int maxPiece = 1 + rng.bounded(100000);
            const int minPiece = rng.bounded(2 * maxPiece + 1);
            const qint64 total = 1 + qint64(rng.bounded(double(maxPiece) * rng.bounded(1, 40)));
            const Ints pieces = VantorUtils::SplitBigNumIntoSmallNumList(total, maxPiece, minPiece);
            const QString where = QStringLiteral("seed %1: %2/%3/%4").arg(seed).arg(total).arg(maxPiece).arg(minPiece);
            qint64 sum = 0;
            for (int piece : pieces) {
                QVERIFY2(piece > 0 && piece <= maxPiece, qPrintable(where));
                sum += piece;
            }
            QVERIFY2(sum == total, qPrintable(where));
            if (total >= minPiece && minPiece <= maxPiece)
                QVERIFY2(pieces.last() >= minPiece, qPrintable(where));
        }
    }
};

QTEST_GUILESS_MAIN(TestBusiness)
#include "tst_business.moc"
