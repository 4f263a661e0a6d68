#pragma once

#include "VantorTypes.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

// Reads a comma-separated text file into rows of trimmed cells. The split is the plain
// one the client has always used: every "," separates cells (no quote-aware parsing),
// every double quote is dropped and each cell is trimmed. Line ends are "\n"; carriage
// returns are dropped wherever they stand, as a text-mode read does.
class CsvTableReader
{
public:
    enum Status {
        Ok,
        OpenFailed,
        BadEncoding, // strict mode only: the file does not decode cleanly with the codec
    };

    struct Result {
        QList<QStringList> rows;
        qint64 linesRead = 0;
    };

    // Large files in a codec that can be cut at line ends are read in pieces, on as many
    // threads as the machine has cores (at most kMaxThreads).
    static Status read(const QString& fileName, const QByteArray& codec, bool strict, ReadTableCfg cfg,
                       Result& result);

    static constexpr qint64 kSplitBytes = 4 << 20;
    static constexpr qint64 kPieceBytes = 1 << 20;
    static constexpr int kPiecesPerThread = 4;
    static constexpr int kMaxThreads = 4;

private:
    // Reads up to `size` bytes at `offset` of the file that is being read; fewer only at its
    // end, negative on failure.
    using ReadAt = std::function<qint64(qint64 offset, char* data, qint64 size)>;
    // Reads the lines of bytes [begin, end); `begin` is 0 or the start of a line.
    static Status readRange(const ReadAt& readAt, qint64 begin, qint64 end, const QByteArray& codec, bool strict,
                            ReadTableCfg cfg, Result& result);
};
