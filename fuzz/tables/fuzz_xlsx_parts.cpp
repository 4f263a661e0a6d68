// Structure-aware workbook target: the input holds the XML of the workbook's parts, one
// after another, and the package around them is built here, stored uncompressed, so
// that every mutation lands in the XML the readers parse.
//
// Input layout: up to six parts separated by "\n=====\n", in this order:
//   xl/worksheets/sheet1.xml, xl/sharedStrings.xml, xl/styles.xml, xl/workbook.xml,
//   xl/worksheets/_rels/sheet1.xml.rels, xl/theme/theme1.xml
// A part the input does not reach keeps a small valid default.
#include "VantorUtils.h"
#include "fuzz_table_common.h"

#include <zip.h>

#include <cstring>
#include <string>

namespace {

const char kSeparator[] = "\n=====\n";

const char kContentTypes[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
    "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
    "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
    "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
    "<Override PartName=\"/xl/workbook.xml\" "
    "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml\"/>"
    "<Override PartName=\"/xl/worksheets/sheet1.xml\" "
    "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml\"/>"
    "<Override PartName=\"/xl/sharedStrings.xml\" "
    "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.sharedStrings+xml\"/>"
    "<Override PartName=\"/xl/styles.xml\" "
    "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.styles+xml\"/>"
    "</Types>";

const char kPackageRels[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
    "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
    "<Relationship Id=\"rId1\" "
    "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument\" "
    "Target=\"xl/workbook.xml\"/>"
    "</Relationships>";

const char kWorkbookRels[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
    "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
    "<Relationship Id=\"rId1\" "
    "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet\" "
    "Target=\"worksheets/sheet1.xml\"/>"
    "<Relationship Id=\"rId2\" "
    "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/sharedStrings\" "
    "Target=\"sharedStrings.xml\"/>"
    "<Relationship Id=\"rId3\" "
    "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/styles\" "
    "Target=\"styles.xml\"/>"
    "<Relationship Id=\"rId4\" "
    "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/chartsheet\" "
    "Target=\"worksheets/sheet1.xml\"/>"
    "<Relationship Id=\"rId5\" "
    "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/theme\" "
    "Target=\"theme/theme1.xml\"/>"
    "</Relationships>";

struct Part {
    const char* name;
    const char* fallback;
};

const Part kParts[] = {
    {"xl/worksheets/sheet1.xml",
     "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
     "<worksheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
     "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
     "<sheetData><row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v></c><c r=\"B1\" s=\"1\"><v>1.5</v></c></row>"
     "<row r=\"2\"><c r=\"A2\" t=\"inlineStr\"><is><t>x</t></is></c><c r=\"B2\"><v>2</v></c></row></sheetData>"
     "</worksheet>"},
    {"xl/sharedStrings.xml",
     "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
     "<sst xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" count=\"1\" uniqueCount=\"1\">"
     "<si><t>name</t></si></sst>"},
    {"xl/styles.xml",
     "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
     "<styleSheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\">"
     "<numFmts count=\"1\"><numFmt numFmtId=\"164\" formatCode=\"0.00\"/></numFmts>"
     "<fonts count=\"1\"><font><sz val=\"11\"/><name val=\"Calibri\"/></font></fonts>"
     "<fills count=\"2\"><fill><patternFill patternType=\"none\"/></fill>"
     "<fill><patternFill patternType=\"gray125\"/></fill></fills>"
     "<borders count=\"1\"><border><left/><right/><top/><bottom/><diagonal/></border></borders>"
     "<cellStyleXfs count=\"1\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" borderId=\"0\"/></cellStyleXfs>"
     "<cellXfs count=\"2\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" borderId=\"0\" xfId=\"0\"/>"
     "<xf numFmtId=\"164\" fontId=\"0\" fillId=\"0\" borderId=\"0\" xfId=\"0\" applyNumberFormat=\"1\"/></cellXfs>"
     "</styleSheet>"},
    {"xl/workbook.xml",
     "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
     "<workbook xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
     "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
     "<sheets><sheet name=\"Sheet1\" sheetId=\"1\" r:id=\"rId1\"/></sheets></workbook>"},
    {"xl/worksheets/_rels/sheet1.xml.rels",
     "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
     "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\"/>"},
    {"xl/theme/theme1.xml",
     "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
     "<a:theme xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\" name=\"Office\"><a:themeElements>"
     "<a:clrScheme name=\"Office\"><a:dk1><a:sysClr val=\"windowText\" lastClr=\"000000\"/></a:dk1>"
     "<a:lt1><a:sysClr val=\"window\" lastClr=\"FFFFFF\"/></a:lt1><a:dk2><a:srgbClr val=\"44546A\"/></a:dk2>"
     "<a:accent1><a:srgbClr val=\"4472C4\"/></a:accent1></a:clrScheme></a:themeElements></a:theme>"},
};
constexpr int kPartCount = int(sizeof(kParts) / sizeof(kParts[0]));

bool addEntry(zip_t* za, const char* name, const void* data, size_t size)
{
    zip_source_t* src = zip_source_buffer(za, data, size, 0);
    if (!src)
        return false;
    const zip_int64_t index = zip_file_add(za, name, src, ZIP_FL_OVERWRITE);
    if (index < 0) {
        zip_source_free(src);
        return false;
    }
    return zip_set_file_compression(za, zip_uint64_t(index), ZIP_CM_STORE, 0) == 0;
}

// The package as bytes; empty when libzip could not build it.
std::string buildPackage(const std::string* parts, int given)
{
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* buffer = zip_source_buffer_create(nullptr, 0, 0, &error);
    if (!buffer)
        return {};
    zip_t* za = zip_open_from_source(buffer, ZIP_TRUNCATE, &error);
    if (!za) {
        zip_source_free(buffer);
        return {};
    }
    zip_source_keep(buffer); // kept past zip_close() to read the result back
    bool ok = addEntry(za, "[Content_Types].xml", kContentTypes, sizeof(kContentTypes) - 1)
        && addEntry(za, "_rels/.rels", kPackageRels, sizeof(kPackageRels) - 1)
        && addEntry(za, "xl/_rels/workbook.xml.rels", kWorkbookRels, sizeof(kWorkbookRels) - 1);
    for (int i = 0; ok && i < kPartCount; ++i) {
        if (i < given)
            ok = addEntry(za, kParts[i].name, parts[i].data(), parts[i].size());
        else
            ok = addEntry(za, kParts[i].name, kParts[i].fallback, std::strlen(kParts[i].fallback));
    }
    if (!ok || zip_close(za) != 0) {
        zip_discard(za);
        zip_source_free(buffer);
        return {};
    }
    std::string bytes;
    zip_stat_t st;
    if (zip_source_open(buffer) == 0) {
        if (zip_source_stat(buffer, &st) == 0 && (st.valid & ZIP_STAT_SIZE)) {
            bytes.resize(size_t(st.size));
            if (zip_source_read(buffer, &bytes[0], st.size) != zip_int64_t(st.size))
                bytes.clear();
        }
        zip_source_close(buffer);
    }
    zip_source_free(buffer);
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string parts[kPartCount];
    const char* p = reinterpret_cast<const char*>(data);
    const char* end = p + size;
    const size_t sepLen = sizeof(kSeparator) - 1;
    int given = 0;
    while (given < kPartCount) {
        const char* cut = given + 1 < kPartCount
            ? static_cast<const char*>(memmem(p, size_t(end - p), kSeparator, sepLen))
            : nullptr;
        if (!cut) {
            parts[given++].assign(p, size_t(end - p));
            break;
        }
        parts[given++].assign(p, size_t(cut - p));
        p = cut + sepLen;
    }

    const std::string package = buildPackage(parts, given);
    if (package.empty())
        return 0;
    const FuzzInputFile input(".xlsx", reinterpret_cast<const uint8_t*>(package.data()), package.size());
    const QString& path = input.path();
    QString err;
    VantorUtils::ReadTableData(path, ReadAllRows, err);
    VantorUtils::ReadMultiSheetTables(path, SkipEmptyRows);
    VantorUtils::WriteTableData({{"h"}, {"1"}}, path, {}, false, ExportFileCodeUtf8, true, err);
    return 0;
}
