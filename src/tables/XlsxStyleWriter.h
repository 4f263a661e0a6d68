#pragma once

#include "XlsxStyles.h"

struct lxw_format;

// Gives a writer's cell format the look of a cell format read from a workbook.
class XlsxStyleWriter
{
public:
    // True when the format looks like a cell with no format at all: the writer's default.
    static bool isPlain(const XlsxCellStyle& style);
    static void apply(const XlsxCellStyle& style, lxw_format* format);
};
