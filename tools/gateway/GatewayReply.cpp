#include "GatewayReply.h"

#include "GatewayRowCache.h"

#include <WireFrameCodec.h>
#include <ZentraFields.h>

#include <QtEndian>

QVariantMap GatewayReply::head(bool success, int totalSize, int rows, const QString& positionStr, const QString& text)
{
    namespace Sys = Zentra_Fields::System;
    QVariantMap head;
    head.insert(QLatin1String(Sys::requestExeStatus),
                QLatin1String(success ? Zentra_Values::RequestExeStatus::success : Zentra_Values::RequestExeStatus::fail));
    head.insert(QLatin1String(Sys::totalSize), totalSize);
    head.insert(QLatin1String(Sys::subGroupNumber), rows);
    head.insert(QLatin1String(Sys::positionStr), positionStr);
    if (!success)
        head.insert(QLatin1String(Sys::textDescription), text);
    return head;
}

QByteArray GatewayReply::fromPage(const GatewayPage& page)
{
    // The array's head, the head row, then the rows (already CBOR when they were kept).
    QByteArray out;
    out.reserve(128 + page.cells.size() * 24 + page.rowsCbor.size());
    const quint32 items = quint32(page.rows) + 1;
    if (items < 24) {
        out.append(char(0x80 | items));
    } else {
        char bytes[5] = {char(0x9a)};
        qToBigEndian(items, bytes + 1);
        out.append(bytes, 5);
    }
    WireFrameCodec::appendValue(out, head(true, page.totalSize, page.rows, page.positionStr));
    if (page.cells.isEmpty()) {
        out.append(page.rowsCbor);
        return out;
    }
    QVector<QByteArray> keys;
    keys.reserve(page.columns.size());
    for (const QString& c : page.columns)
        keys.append(c.toUtf8());
    const QVariant* cell = page.cells.constData();
    for (int r = 0; r < page.rows; ++r, cell += keys.size())
        GatewayRowCache::encodeRow(out, keys, cell);
    return out;
}

QByteArray GatewayReply::fromRows(const QList<QVariantMap>& rows, int totalSize)
{
    QVariantList list;
    list.reserve(rows.size() + 1);
    list.append(head(true, totalSize < 0 ? rows.size() : totalSize, rows.size(), QString()));
    for (const QVariantMap& row : rows)
        list.append(row);
    return WireFrameCodec::encodeMessage(list);
}

QByteArray GatewayReply::failure(const QString& text)
{
    return WireFrameCodec::encodeMessage(QVariantList{head(false, 0, 0, QString(), text)});
}
