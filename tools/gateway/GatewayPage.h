#pragma once

#include <QByteArray>
#include <QStringList>
#include <QVector>
#include <QVariant>

// Rows read from the gateway's database for one reply, kept flat: `columns` names the
// fields (in ascending order) and `cells` holds rows * columns values, row after row.
struct GatewayPage {
    QStringList columns;
    QVector<QVariant> cells;
    int rows = 0;
    int totalSize = 0;
    QString positionStr; // position of the last row, for position paging
    // The rows already as CBOR maps, one after another; `cells` is then empty.
    QByteArray rowsCbor;
};
