#include "VantorUtils.h"
#include "fuzz_table_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const FuzzInputFile input(".csv", data, size);
    const QString& path = input.path();
    QString err;
    VantorUtils::ReadTableData(path, (size & 1) ? SkipEmptyRows : ReadAllRows, err);
    VantorUtils::ChargeFileCodec(path);
    return 0;
}
