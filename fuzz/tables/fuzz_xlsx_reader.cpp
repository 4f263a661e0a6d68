#include "VantorUtils.h"
#include "fuzz_table_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = fuzzInputFile(".xlsx", data, size);
    QString err;
    VantorUtils::ReadTableData(path, ReadAllRows, err);
    VantorUtils::ReadMultiSheetTables(path, SkipEmptyRows);
    return 0;
}
