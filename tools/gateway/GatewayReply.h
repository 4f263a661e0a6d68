#pragma once

#include "GatewayPage.h"

#include <QByteArray>
#include <QList>
#include <QVariantMap>

// Builds the CBOR messages of the gateway's replies: the head row (status, totalSize,
// subGroupNumber, positionStr and, on failure, textDescription) followed by the data rows.
class GatewayReply
{
public:
    static QVariantMap head(bool success, int totalSize, int rows, const QString& positionStr,
                            const QString& text = QString());
    // A successful reply with the rows of a page, written straight from the page's cells.
    static QByteArray fromPage(const GatewayPage& page);
    static QByteArray fromRows(const QList<QVariantMap>& rows, int totalSize = -1);
    static QByteArray failure(const QString& text);
};
