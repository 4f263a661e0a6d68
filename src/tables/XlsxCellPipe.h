#pragma once

#include "XlsxRawCell.h"

#include <QByteArray>
#include <QMutex>
#include <QString>
#include <QVector>
#include <QWaitCondition>

// Carries raw cells from the thread that parses a sheet to the thread that builds the
// table, in batches. At most a few batches are in flight: the parser waits when the
// builder falls behind, so memory stays bounded whatever the sheet's size.
class XlsxCellPipe : public XlsxRawCellSink
{
public:
    XlsxCellPipe();

    // Producer side.
    void cell(const XlsxRawCell& cell) override;
    void columnWidth(int firstCol, int lastCol, double width) override;
    // Ends the stream; `ok` and `err` are what drain() reports.
    void close(bool ok, const QString& err);

    // Consumer side: passes every cell on to `out` until the producer closes; returns
    // the producer's verdict.
    bool drain(XlsxRawCellSink& out, QString& err);

    static constexpr int kBatchBytes = 256 << 10;
    static constexpr int kBatchesInFlight = 4;

    XlsxCellPipe(const XlsxCellPipe&) = delete;
    XlsxCellPipe& operator=(const XlsxCellPipe&) = delete;

private:
    struct Header {
        int row;
        int col;
        int style;
        int sharedIndex;
        int valueLen;
        int formulaLen;
        union {
            double width; // column width records
            struct {
                int lastRow;
                int lastCol;
            } array; // cells: the range an array formula fills (see XlsxRawCell)
        };
        char kind;    // an XlsxRawCell::Kind, or 'w' for a column width
        bool hasFormula;
        bool styleFromColumn;
    };

    void append(const Header& h, const char* value, const char* formula);
    void flushBatch();

    QMutex m_mutex;
    QWaitCondition m_filled;
    QWaitCondition m_emptied;
    QVector<QByteArray> m_full;   // batches waiting for the consumer, oldest first
    QVector<QByteArray> m_spare;  // consumed batches for the producer to reuse
    QByteArray m_batch;           // being filled by the producer
    bool m_closed = false;
    bool m_ok = true;
    QString m_err;
};
