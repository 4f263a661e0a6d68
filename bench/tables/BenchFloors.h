#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

// What the libraries underneath cost on their own, measured on the same data as the
// library's own cases so that each figure can be set beside its floor.
namespace BenchFloors {

// Cells made ready for the writer before the clock starts: numbers as doubles, text as
// UTF-8.
struct PreparedTable;
PreparedTable* prepare(const QList<QStringList>& table, const QSet<int>& numericColumns);
void release(PreparedTable* prepared);

// libxlsxwriter alone in constant-memory mode: the header bold at size 14 and width 30,
// a number format per numeric column, every cell written as it comes.
bool writeWorkbook(const PreparedTable* prepared, const QString& path);

// libzip streaming the first sheet part into expat, collecting each cell's text into a
// row of QStrings (shared strings loaded first when the workbook has them). No styles,
// no dates, no number formatting: only the cells.
QList<QStringList> readWorkbook(const QString& path);

} // namespace BenchFloors
