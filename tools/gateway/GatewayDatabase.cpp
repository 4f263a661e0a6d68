#include "GatewayDatabase.h"

#include "GatewayLogging.h"

#include <VantorFields.h>
#include <ZentraFields.h>

#include <QAtomicInt>
#include <QRandomGenerator>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTime>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {
namespace S = Zentra_Fields::Security;
namespace F = Zentra_Fields::Funds;
namespace OS = Zentra_Values::OrderStatus;
const char* const account = Zentra_Fields::UserAccount::tradingAccount;

struct Column {
    const char* name;
    const char* type;
};

// Columns in the order of the generated values; the first is the table's key.
const Column fundsColumns[] = {{account, "TEXT PRIMARY KEY"}, {F::currency, "TEXT"}, {F::totalAsset, "REAL"},
                               {F::availableFunds, "REAL"}, {F::frozenFunds, "REAL"}, {F::fetchBalance, "REAL"},
                               {F::marketValue, "REAL"}, {F::currentBalance, "REAL"}, {F::todayProfit, "REAL"},
                               {F::updateTime, "TEXT"}};
const Column positionColumns[] = {{Zentra_Fields::System::positionStr, "TEXT PRIMARY KEY"}, {account, "TEXT"},
                                  {S::symbol, "TEXT"}, {S::exchange, "TEXT"}, {S::securityName, "TEXT"},
                                  {S::currentQty, "INTEGER"}, {S::availableQty, "INTEGER"}, {S::costPrice, "REAL"},
                                  {S::lastPrice, "REAL"}, {S::marketValue, "REAL"}, {S::profit, "REAL"}};
const Column orderColumns[] = {{S::orderID, "TEXT UNIQUE"}, {account, "TEXT"}, {S::symbol, "TEXT"},
                               {S::exchange, "TEXT"}, {S::side, "TEXT"}, {S::price, "REAL"},
                               {S::orderQty, "INTEGER"}, {S::cumQty, "INTEGER"}, {S::orderStatus, "TEXT"},
                               {S::orderTime, "TEXT"}};
const Column tradeColumns[] = {{S::tradeID, "TEXT UNIQUE"}, {S::orderID, "TEXT"}, {account, "TEXT"},
                               {S::symbol, "TEXT"}, {S::exchange, "TEXT"}, {S::side, "TEXT"},
                               {S::tradePrice, "REAL"}, {S::tradeQty, "INTEGER"}, {S::tradeAmount, "REAL"},
                               {S::tradeTime, "TEXT"}};

struct Security {
    const char* symbol;
    const char* exchange;
    const char* name;
};
const Security securities[] = {
    {"600000", Vantor_Values::Exchange::sh, "浦发银行"}, {"600036", Vantor_Values::Exchange::sh, "招商银行"},
    {"600519", Vantor_Values::Exchange::sh, "贵州茅台"}, {"601318", Vantor_Values::Exchange::sh, "中国平安"},
    {"601398", Vantor_Values::Exchange::sh, "工商银行"}, {"688981", Vantor_Values::Exchange::sh, "中芯国际"},
    {"000001", Vantor_Values::Exchange::sz, "平安银行"}, {"000333", Vantor_Values::Exchange::sz, "美的集团"},
    {"000858", Vantor_Values::Exchange::sz, "五粮液"},   {"002594", Vantor_Values::Exchange::sz, "比亚迪"},
    {"300750", Vantor_Values::Exchange::sz, "宁德时代"}, {"300059", Vantor_Values::Exchange::sz, "东方财富"},
    {"830799", Vantor_Values::Exchange::bj, "艾融软件"}, {"430047", Vantor_Values::Exchange::bj, "诺思兰德"},
    {"00700", Vantor_Values::Exchange::hk, "腾讯控股"},   {"09988", Vantor_Values::Exchange::hk, "阿里巴巴"},
};
constexpr int securityCount = int(sizeof securities / sizeof securities[0]);

template <size_t N>
QString columnList(const Column (&cols)[N])
{
    QStringList names;
    for (const Column& c : cols)
        names << QLatin1String(c.name);
    return names.join(QLatin1String(", "));
}

template <size_t N>
QString createSql(const char* table, const Column (&cols)[N], bool withSeq)
{
    QStringList defs;
    if (withSeq)
        defs << QStringLiteral("seq INTEGER PRIMARY KEY");
    for (const Column& c : cols)
        defs << QStringLiteral("%1 %2").arg(QLatin1String(c.name), QLatin1String(c.type));
    return QStringLiteral("CREATE TABLE %1 (%2)").arg(QLatin1String(table), defs.join(QLatin1String(", ")));
}

template <size_t N>
QString insertSql(const char* table, const Column (&cols)[N])
{
    QStringList marks;
    for (size_t i = 0; i < N; ++i)
        marks << QStringLiteral("?");
    return QStringLiteral("INSERT INTO %1 (%2) VALUES (%3)")
        .arg(QLatin1String(table), columnList(cols), marks.join(QLatin1String(", ")));
}

double money(double x)
{
    return std::round(x * 100.0) / 100.0;
}

QString key(qint64 n)
{
    return QStringLiteral("%1").arg(n, 10, 10, QLatin1Char('0'));
}

QString clock(qint64 n)
{
    return QTime(9, 30).addSecs(int(n % 19800)).toString(QStringLiteral("HH:mm:ss"));
}

bool bindAll(QSqlQuery& q, const QVariantList& values, QString* error)
{
    for (int i = 0; i < values.size(); ++i)
        q.bindValue(i, values.at(i));
    if (q.exec())
        return true;
    if (error)
        *error = q.lastError().text();
    return false;
}

QAtomicInt connectionCounter;
} // namespace

GatewayDatabase::GatewayDatabase()
    : m_connection(QStringLiteral("vantor-gateway-%1").arg(connectionCounter.fetchAndAddRelaxed(1)))
{
}

GatewayDatabase::~GatewayDatabase()
{
    close();
}

QString GatewayDatabase::defaultAccount()
{
    return QStringLiteral("880000001");
}

bool GatewayDatabase::exec(const QString& sql, QString* error)
{
    QSqlQuery q(m_db);
    if (q.exec(sql))
        return true;
    if (error)
        *error = q.lastError().text();
    qCWarning(lcGateway).noquote() << "GatewayDatabase::exec" << sql << q.lastError().text();
    return false;
}

bool GatewayDatabase::open(const QString& path, int rows, quint32 seed, QString* error)
{
    close();
    m_db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    m_db.setDatabaseName(path);
    if (!m_db.open()) {
        if (error)
            *error = m_db.lastError().text();
        return false;
    }
    exec(QStringLiteral("PRAGMA synchronous = OFF"));
    exec(QStringLiteral("PRAGMA journal_mode = MEMORY"));

    const QString stamp = QStringLiteral("%1/%2").arg(rows).arg(seed);
    bool fresh = true;
    bool ours = false; // the gateway's own tables, told by their meta table
    {
        QSqlQuery q(m_db);
        if (q.exec(QStringLiteral("SELECT value FROM meta WHERE name = 'data'"))) {
            ours = true;
            if (q.next())
                fresh = q.value(0).toString() != stamp;
        }
    }
    if (!ours) {
        // A database the gateway did not make is never overwritten: its tables are someone's.
        bool foreign = false;
        {
            QSqlQuery q(m_db);
            foreign = q.exec(QStringLiteral("SELECT COUNT(*) FROM sqlite_master WHERE type = 'table'")) && q.next()
                && q.value(0).toInt() > 0;
        }
        if (foreign) {
            if (error)
                *error = QStringLiteral("%1 holds tables the gateway did not make; give it a new file").arg(path);
            close();
            return false;
        }
    }
    if (fresh) {
        for (const char* table : {"meta", "funds", "positions", "orders", "trades"})
            exec(QStringLiteral("DROP TABLE IF EXISTS %1").arg(QLatin1String(table)));
        if (!generate(rows, seed, error))
            return false;
        QSqlQuery q(m_db);
        q.prepare(QStringLiteral("INSERT INTO meta (name, value) VALUES ('data', ?)"));
        if (!bindAll(q, {stamp}, error))
            return false;
    }

    auto count = [this](const char* table) {
        QSqlQuery q(m_db);
        q.exec(QStringLiteral("SELECT COUNT(*) FROM %1").arg(QLatin1String(table)));
        return q.next() ? q.value(0).toInt() : 0;
    };
    m_changed = false;
    m_positionCount = count("positions");
    m_orderCount = count("orders");
    m_tradeCount = count("trades");

    m_positionsQuery = std::make_unique<QSqlQuery>(m_db);
    m_positionsQuery->setForwardOnly(true);
    m_positionsQuery->prepare(QStringLiteral("SELECT %1 FROM positions WHERE %2 > ? ORDER BY %2 LIMIT ?")
                                  .arg(columnList(positionColumns), QLatin1String(Zentra_Fields::System::positionStr)));
    // Orders and trades are numbered from 1 without gaps, so a page is a range of numbers.
    m_ordersQuery = std::make_unique<QSqlQuery>(m_db);
    m_ordersQuery->setForwardOnly(true);
    m_ordersQuery->prepare(QStringLiteral("SELECT %1 FROM orders WHERE seq > ? ORDER BY seq LIMIT ?").arg(columnList(orderColumns)));
    m_tradesQuery = std::make_unique<QSqlQuery>(m_db);
    m_tradesQuery->setForwardOnly(true);
    m_tradesQuery->prepare(QStringLiteral("SELECT %1 FROM trades WHERE seq > ? ORDER BY seq LIMIT ?").arg(columnList(tradeColumns)));
    return true;
}

void GatewayDatabase::close()
{
    m_funds = GatewayPage();
    m_positionRows.clear();
    m_positionKeys.clear();
    m_orderRows.clear();
    m_tradeRows.clear();
    m_positionsQuery.reset();
    m_ordersQuery.reset();
    m_tradesQuery.reset();
    if (m_db.isValid()) {
        m_db.close();
        m_db = QSqlDatabase();
        QSqlDatabase::removeDatabase(m_connection);
    }
}

bool GatewayDatabase::generate(int rows, quint32 seed, QString* error)
{
    if (!exec(QStringLiteral("CREATE TABLE meta (name TEXT PRIMARY KEY, value TEXT)"), error)
        || !exec(createSql("funds", fundsColumns, false), error)
        || !exec(createSql("positions", positionColumns, false), error)
        || !exec(createSql("orders", orderColumns, true), error)
        || !exec(createSql("trades", tradeColumns, true), error))
        return false;

    QRandomGenerator gen(seed);
    const char* statuses[] = {OS::filled, OS::partiallyFilled, OS::newOrder, OS::canceled};
    const char* sides[] = {Zentra_Values::Side::buy, Zentra_Values::Side::sell};
    m_db.transaction();

    QSqlQuery funds(m_db);
    funds.prepare(insertSql("funds", fundsColumns));
    const double cash = money(100000 + gen.bounded(10000000) / 10.0);
    const double frozen = money(gen.bounded(100000) / 10.0);
    const double value = money(gen.bounded(50000000) / 10.0);
    if (!bindAll(funds,
                 {defaultAccount(), QStringLiteral("CNY"), money(cash + value), money(cash - frozen), frozen,
                  money((cash - frozen) * 0.9), value, cash, money(gen.bounded(200000) / 10.0 - 10000),
                  QStringLiteral("15:00:00")},
                 error))
        return false;

    QSqlQuery positions(m_db);
    positions.prepare(insertSql("positions", positionColumns));
    for (int i = 1; i <= rows; ++i) {
        const Security& s = securities[gen.bounded(securityCount)];
        const qint64 qty = 100 * (1 + qint64(gen.bounded(100)));
        const qint64 available = 100 * qint64(gen.bounded(int(qty / 100) + 1));
        const double cost = money(2 + gen.bounded(20000) / 100.0);
        const double last = money(cost * (0.8 + gen.bounded(400) / 1000.0));
        if (!bindAll(positions,
                     {key(i), defaultAccount(), QLatin1String(s.symbol), QLatin1String(s.exchange),
                      QString::fromUtf8(s.name), qty, available, cost, last, money(last * double(qty)),
                      money((last - cost) * double(qty))},
                     error))
            return false;
    }

    QSqlQuery orders(m_db);
    orders.prepare(insertSql("orders", orderColumns));
    for (int i = 1; i <= rows; ++i) {
        const Security& s = securities[gen.bounded(securityCount)];
        const char* status = statuses[gen.bounded(4)];
        const qint64 qty = 100 * (1 + qint64(gen.bounded(50)));
        qint64 cum = 0;
        if (qstrcmp(status, OS::filled) == 0)
            cum = qty;
        else if (qstrcmp(status, OS::partiallyFilled) == 0)
            cum = 100 * ((qty / 100 + 1) / 2);
        if (!bindAll(orders,
                     {key(i), defaultAccount(), QLatin1String(s.symbol), QLatin1String(s.exchange),
                      QLatin1String(sides[gen.bounded(2)]), money(2 + gen.bounded(20000) / 100.0), qty, cum,
                      QLatin1String(status), clock(i)},
                     error))
            return false;
    }

    QSqlQuery trades(m_db);
    trades.prepare(insertSql("trades", tradeColumns));
    for (int i = 1; i <= rows; ++i) {
        const Security& s = securities[gen.bounded(securityCount)];
        const qint64 qty = 100 * (1 + qint64(gen.bounded(50)));
        const double price = money(2 + gen.bounded(20000) / 100.0);
        if (!bindAll(trades,
                     {key(i), key(1 + gen.bounded(qMax(rows, 1))), defaultAccount(), QLatin1String(s.symbol),
                      QLatin1String(s.exchange), QLatin1String(sides[gen.bounded(2)]), price, qty,
                      money(price * double(qty)), clock(i)},
                     error))
            return false;
    }
    return m_db.commit();
}

GatewayPage GatewayDatabase::readPage(QSqlQuery& query, const QString& positionField)
{
    GatewayPage page;
    const QSqlRecord record = query.record();
    const int columns = record.count();
    QVector<int> order(columns);
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](int a, int b) { return record.fieldName(a) < record.fieldName(b); });
    int positionColumn = -1;
    for (int i = 0; i < columns; ++i) {
        page.columns << record.fieldName(order.at(i));
        if (page.columns.last() == positionField)
            positionColumn = i;
    }
    while (query.next()) {
        for (int i = 0; i < columns; ++i)
            page.cells.append(query.value(order.at(i)));
        ++page.rows;
    }
    query.finish();
    if (positionColumn >= 0 && page.rows > 0)
        page.positionStr = page.cells.at((page.rows - 1) * columns + positionColumn).toString();
    return page;
}

GatewayPage GatewayDatabase::funds()
{
    // The funds never change: read and encoded once.
    if (m_funds.rowsCbor.isEmpty()) {
        QSqlQuery q(m_db);
        q.setForwardOnly(true);
        q.exec(QStringLiteral("SELECT %1 FROM funds").arg(columnList(fundsColumns)));
        GatewayPage page = readPage(q);
        GatewayRowCache rows;
        rows.store(0, page);
        m_funds.rows = page.rows;
        m_funds.totalSize = page.rows;
        rows.append(m_funds.rowsCbor, 0, page.rows);
    }
    return m_funds;
}

bool GatewayDatabase::loadPositions()
{
    // Positions never change: all of them are read once, in order, a chunk at a time.
    constexpr int chunk = 5000;
    QString after = QStringLiteral("");
    while (m_positionRows.size() < m_positionCount) {
        m_positionsQuery->bindValue(0, after);
        m_positionsQuery->bindValue(1, chunk);
        if (!m_positionsQuery->exec())
            break;
        const QString positionField = QLatin1String(Zentra_Fields::System::positionStr);
        GatewayPage page = readPage(*m_positionsQuery, positionField);
        if (page.rows == 0)
            break;
        const int keyColumn = page.columns.indexOf(positionField);
        const int columns = page.columns.size();
        for (int r = 0; r < page.rows; ++r)
            m_positionKeys.append(page.cells.at(r * columns + keyColumn).toString());
        m_positionRows.store(m_positionRows.size(), page);
        after = page.positionStr;
        if (page.rows < chunk)
            break;
    }
    if (m_positionRows.size() == m_positionCount)
        return true;
    m_positionRows.clear();
    m_positionKeys.clear();
    return false;
}

GatewayPage GatewayDatabase::positions(const QString& positionStr, int count)
{
    GatewayPage page;
    page.totalSize = m_positionCount;
    page.positionStr = positionStr;
    if (m_positionRows.size() != m_positionCount && !loadPositions()) {
        // Could not keep them all: read this page alone.
        m_positionsQuery->bindValue(0, positionStr.isNull() ? QStringLiteral("") : positionStr);
        m_positionsQuery->bindValue(1, count);
        m_positionsQuery->exec();
        page = readPage(*m_positionsQuery, QLatin1String(Zentra_Fields::System::positionStr));
        page.totalSize = m_positionCount;
        if (page.rows == 0)
            page.positionStr = positionStr;
        return page;
    }
    const int first = int(std::upper_bound(m_positionKeys.cbegin(), m_positionKeys.cend(), positionStr) - m_positionKeys.cbegin());
    page.rows = qMax(0, qMin(count, m_positionKeys.size() - first));
    if (page.rows > 0) {
        m_positionRows.append(page.rowsCbor, first, page.rows);
        page.positionStr = m_positionKeys.at(first + page.rows - 1);
    }
    return page;
}

GatewayPage GatewayDatabase::numberedPage(QSqlQuery& query, GatewayRowCache& cache, int rowCount, int pageNo, int pageSize)
{
    // Rows are numbered from 1 without gaps, so page n holds rows n * size + 1 onwards.
    GatewayPage page;
    page.totalSize = rowCount;
    const qint64 first = qint64(pageNo) * pageSize;
    if (first >= rowCount)
        return page;
    const int count = int(qMin<qint64>(pageSize, rowCount - first));
    if (!cache.has(int(first), count)) {
        query.bindValue(0, first);
        query.bindValue(1, pageSize);
        query.exec();
        GatewayPage read = readPage(query);
        read.totalSize = rowCount;
        if (read.rows != count)
            return read; // the table is not numbered as expected: answer what it holds
        cache.store(int(first), read);
    }
    page.rows = count;
    cache.append(page.rowsCbor, int(first), count);
    return page;
}

GatewayPage GatewayDatabase::orders(int pageNo, int pageSize)
{
    return numberedPage(*m_ordersQuery, m_orderRows, m_orderCount, pageNo, pageSize);
}

GatewayPage GatewayDatabase::trades(int pageNo, int pageSize)
{
    return numberedPage(*m_tradesQuery, m_tradeRows, m_tradeCount, pageNo, pageSize);
}

void GatewayDatabase::markChanged()
{
    if (m_changed)
        return;
    // The next run with the same seed and rows generates the data again.
    m_changed = exec(QStringLiteral("DELETE FROM meta WHERE name = 'data'"));
}

bool GatewayDatabase::insertOrder(GatewayOrder& order)
{
    markChanged();
    order.orderID = key(m_orderCount + 1);
    QSqlQuery q(m_db);
    q.prepare(insertSql("orders", orderColumns));
    QString error;
    if (!bindAll(q,
                 {order.orderID, order.tradingAccount, order.symbol, order.exchange, order.side, order.price,
                  order.orderQty, order.cumQty, order.orderStatus, order.orderTime},
                 &error)) {
        qCWarning(lcGateway).noquote() << "GatewayDatabase::insertOrder" << error;
        return false;
    }
    ++m_orderCount;
    return true;
}

bool GatewayDatabase::findOrder(const QString& orderID, GatewayOrder* order)
{
    QSqlQuery q(m_db);
    q.prepare(QStringLiteral("SELECT %1 FROM orders WHERE %2 = ?").arg(columnList(orderColumns), QLatin1String(S::orderID)));
    q.addBindValue(orderID);
    if (!q.exec() || !q.next())
        return false;
    order->orderID = q.value(0).toString();
    order->tradingAccount = q.value(1).toString();
    order->symbol = q.value(2).toString();
    order->exchange = q.value(3).toString();
    order->side = q.value(4).toString();
    order->price = q.value(5).toDouble();
    order->orderQty = q.value(6).toLongLong();
    order->cumQty = q.value(7).toLongLong();
    order->orderStatus = q.value(8).toString();
    order->orderTime = q.value(9).toString();
    return true;
}

bool GatewayDatabase::updateOrder(const GatewayOrder& order)
{
    markChanged();
    QSqlQuery q(m_db);
    q.prepare(QStringLiteral("UPDATE orders SET %1 = ?, %2 = ? WHERE %3 = ?")
                  .arg(QLatin1String(S::orderStatus), QLatin1String(S::cumQty), QLatin1String(S::orderID)));
    q.addBindValue(order.orderStatus);
    q.addBindValue(order.cumQty);
    q.addBindValue(order.orderID);
    if (!q.exec())
        return false;
    // Order ids are the row numbers; the changed row is read again with its next page.
    bool numbered = false;
    const qint64 seq = order.orderID.toLongLong(&numbered);
    if (numbered && seq >= 1 && seq <= m_orderCount)
        m_orderRows.forget(int(seq - 1));
    else
        m_orderRows.clear();
    return true;
}
