#include "VantorUtils.h"
#include "fuzz_table_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const FuzzInputFile input(".xlsx", data, size);
    const QString& path = input.path();
    QString err;
    VantorUtils::ReadTableData(path, ReadAllRows, err);
    VantorUtils::ReadMultiSheetTables(path, SkipEmptyRows);
    // Appending rewrites the workbook with everything it holds besides the cells too.
    VantorUtils::WriteTableData({{"h"}, {"1"}}, path, {}, false, ExportFileCodeUtf8, true, err);
    return 0;
}
