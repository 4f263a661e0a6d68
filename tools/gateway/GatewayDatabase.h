#pragma once

#include "GatewayOrder.h"
#include "GatewayPage.h"
#include "GatewayRowCache.h"

#include <QSqlDatabase>
#include <QString>

#include <memory>

class QSqlQuery;

// The gateway's store: SQLite through Qt SQL, holding one account's funds and N
// positions, orders and trades generated from a seed, plus the orders placed at run time.
// Used on one thread only (the gateway's).
class GatewayDatabase
{
public:
    GatewayDatabase();
    ~GatewayDatabase();

    // Opens (creating when needed) the file and fills it from seed and rows. A file that
    // already holds the data of the same seed and rows, unchanged by orders placed or
    // cancelled since, is used as it is.
    bool open(const QString& path, int rows, quint32 seed, QString* error);
    void close();

    static QString defaultAccount();

    GatewayPage funds();
    // Positions after `positionStr` (empty: from the first), at most `count`.
    GatewayPage positions(const QString& positionStr, int count);
    // Page `pageNo` (from 0) of `pageSize` rows.
    GatewayPage orders(int pageNo, int pageSize);
    GatewayPage trades(int pageNo, int pageSize);

    // Stores a new order and gives it its id.
    bool insertOrder(GatewayOrder& order);
    bool findOrder(const QString& orderID, GatewayOrder* order);
    bool updateOrder(const GatewayOrder& order);
    int orderCount() const { return m_orderCount; }

private:
    bool generate(int rows, quint32 seed, QString* error);
    bool exec(const QString& sql, QString* error = nullptr);
    GatewayPage readPage(QSqlQuery& query, const QString& positionField = QString());
    GatewayPage numberedPage(QSqlQuery& query, GatewayRowCache& cache, int rowCount, int pageNo, int pageSize);
    bool loadPositions();
    // Before the first change of a run: the file no longer holds the generated data alone.
    void markChanged();

    QString m_connection;
    QSqlDatabase m_db;
    int m_positionCount = 0;
    int m_orderCount = 0;
    int m_tradeCount = 0;
    bool m_changed = false;
    std::unique_ptr<QSqlQuery> m_positionsQuery;
    std::unique_ptr<QSqlQuery> m_ordersQuery;
    std::unique_ptr<QSqlQuery> m_tradesQuery;
    // Replies are built from rows encoded once; placed and changed orders update them.
    GatewayPage m_funds;
    GatewayRowCache m_positionRows;
    QStringList m_positionKeys; // positionStr of each kept position, ascending
    GatewayRowCache m_orderRows;
    GatewayRowCache m_tradeRows;
};
