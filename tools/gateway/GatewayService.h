#pragma once

#include "GatewayOrder.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariant>

class GatewayDatabase;
class GatewayFaults;

// The gateway's function catalogue: answers one request from the database, places and
// cancels orders, and applies the control function to the fault settings.
class GatewayService
{
public:
    struct Outcome {
        bool failed = false;       // answered with a failure frame rather than a reply
        QByteArray message;        // CBOR of the reply's packed message
        QList<GatewayOrder> placed;   // orders whose states are to be pushed from now on
        QList<GatewayOrder> canceled; // orders that this request canceled
    };

    GatewayService(GatewayDatabase& db, GatewayFaults& faults);

    Outcome handle(const QString& functionId, const QVariant& msg);
    static bool isControl(const QString& functionId);

private:
    Outcome positions(const QVariantMap& head);
    Outcome pageNumbered(const QString& functionId, const QVariantMap& head);
    Outcome placeOrder(const QVariantMap& head);
    Outcome batchOrder(const QList<QVariantMap>& rows);
    Outcome cancelOrder(const QVariantMap& head);
    Outcome control(const QVariantMap& head);
    // Fills the order from a request row; an empty text means it is valid.
    QString readOrder(const QVariantMap& row, const QVariantMap& defaults, GatewayOrder* order) const;

    GatewayDatabase& m_db;
    GatewayFaults& m_faults;
};
