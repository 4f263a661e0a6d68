#pragma once

#include "VantorTypes.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

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
    CsvTableWriter(QIODevice* device, const QByteArray& codecName, bool quoteFields,
                   const QMap<int, ExportFormat>& formats);
    ~CsvTableWriter();

    bool writeRow(const QStringList& row);
    bool flush();

    static void appendLine(QString& out, const QStringList& row, const QString& quote, const QVector<bool>& numeric);

    CsvTableWriter(const CsvTableWriter&) = delete;
    CsvTableWriter& operator=(const CsvTableWriter&) = delete;

private:
    QIODevice* m_device;
    std::unique_ptr<TableTextEncoder> m_encoder;
    QString m_quote;
    QVector<bool> m_numeric;
    QString m_buffer;
};
