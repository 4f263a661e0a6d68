#pragma once

#include <QString>

// User-facing texts of workbook read failures that have no older wording of their own.
namespace XlsxErrors {
inline QString openFailed() { return QStringLiteral("Excel文件无法打开或已损坏，请检查文件后再试！"); }
inline QString missingPart() { return QStringLiteral("Excel文件缺少工作表内容，请检查文件后再试！"); }
inline QString tooLarge() { return QStringLiteral("Excel文件解压后的内容超出上限，文件可能已损坏，请检查文件！"); }
inline QString badXml() { return QStringLiteral("Excel文件中的内容格式错误，请检查文件并重新编辑保存后再试！"); }
inline QString tooManyCells() { return QStringLiteral("Excel文件的行数或列数超出上限，请检查文件！"); }
} // namespace XlsxErrors
