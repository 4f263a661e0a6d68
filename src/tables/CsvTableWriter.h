#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVector>

#include <memory>

class QIODevice;
class TableTextEncoder;

// Formats rows as comma-separated lines ending in "\r\n" and encodes them in large
// blocks. Cells of numeric columns lose their thousands separators and spaces; a cell
// holding a comma or a CRLF is quoted as it is, a cell holding a double quote has each
// one turned into a backquote, every other cell is quoted.
class CsvTableWriter
{
public:
    // `numeric`: per column (0-based), whether it is a numeric one.
    CsvTableWriter(QIODevice* device, const QByteArray& codecName, bool quoteFields, const QVector<bool>& numeric);
    ~CsvTableWriter();

    // A row whose line does not fit (see lineFits) is refused: nothing of it is written.
    bool writeRow(const QStringList& row);
    bool flush();

    static void appendLine(QString& out, const QStringList& row, const QString& quote, const QVector<bool>& numeric);
    // Whether the row's line, quotes and separators included, is short enough to be
    // formatted and encoded in one piece.
    static bool lineFits(const QStringList& row, bool quoteFields);

    CsvTableWriter(const CsvTableWriter&) = delete;
    CsvTableWriter& operator=(const CsvTableWriter&) = delete;

private:
    QIODevice* m_device;
    std::unique_ptr<TableTextEncoder> m_encoder;
    QString m_quote;
    QVector<bool> m_numeric;
    QString m_buffer;
};
