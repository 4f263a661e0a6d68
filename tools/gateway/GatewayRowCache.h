#pragma once

#include "GatewayPage.h"

#include <QByteArray>
#include <QVector>

// The rows of one table as CBOR maps, by row number from 0, so that a page that was read
// once leaves again without going to the database. Rows are kept as pages are read; a row
// that changes is forgotten and read again with the next page that holds it.
class GatewayRowCache
{
public:
    void clear();
    // True when every row of [first, first + count) is kept.
    bool has(int first, int count) const;
    // Keeps the rows of `page` (read from the database) as rows first, first + 1, ...
    void store(int first, const GatewayPage& page);
    void forget(int row);
    // Appends the CBOR of rows [first, first + count), which must all be kept.
    void append(QByteArray& out, int first, int count) const;
    int size() const { return m_rows.size(); }

    // The CBOR map of one row of a page.
    static void encodeRow(QByteArray& out, const QVector<QByteArray>& keys, const QVariant* cells);

private:
    struct Slot {
        int offset = 0;
        int length = -1; // -1: not kept
    };
    QByteArray m_blob; // the encoded rows, one after another; replaced rows leave gaps
    qsizetype m_live = 0; // bytes of m_blob that kept rows use
    QVector<Slot> m_rows;
};
