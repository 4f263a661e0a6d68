// Hand-made workbook packages for the reader tests.
#pragma once

#include <QFile>
#include <QMap>
#include <QString>

#include <zip.h>

using Parts = QMap<QString, QByteArray>;

namespace XlsxPackage {

const char kContentTypes[] = "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\"/>";
const char kPackageRels[] =
    "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
    "<Relationship Id=\"rId1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument\""
    " Target=\"xl/workbook.xml\"/></Relationships>";
const char kWorkbookRels[] =
    "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
    "<Relationship Id=\"rId1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet\""
    " Target=\"worksheets/sheet1.xml\"/>"
    "<Relationship Id=\"rId2\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/sharedStrings\""
    " Target=\"sharedStrings.xml\"/>"
    "<Relationship Id=\"rId3\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/styles\""
    " Target=\"styles.xml\"/></Relationships>";
const char kWorkbook[] =
    "<workbook xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
    "<sheets><sheet name=\"Sheet1\" sheetId=\"1\" r:id=\"rId1\"/></sheets></workbook>";

// Writes a package (entries stored, or deflated) holding the given parts over a minimal
// valid workbook; a part given as a null array is left out.
inline bool write(const QString& path, const Parts& given, bool deflate = false)
{
    Parts parts{{"[Content_Types].xml", kContentTypes},
                {"_rels/.rels", kPackageRels},
                {"xl/_rels/workbook.xml.rels", kWorkbookRels},
                {"xl/workbook.xml", kWorkbook},
                {"xl/worksheets/sheet1.xml", "<worksheet><sheetData/></worksheet>"}};
    for (auto it = given.begin(); it != given.end(); ++it) {
        if (it.value().isNull())
            parts.remove(it.key());
        else
            parts.insert(it.key(), it.value());
    }
    int error = 0;
    zip_t* za = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!za)
        return false;
    for (auto it = parts.begin(); it != parts.end(); ++it) {
        zip_source_t* src = zip_source_buffer(za, it.value().constData(), zip_uint64_t(it.value().size()), 0);
        const zip_int64_t index = src ? zip_file_add(za, it.key().toUtf8().constData(), src, ZIP_FL_OVERWRITE) : -1;
        if (index < 0) {
            zip_source_free(src);
            zip_discard(za);
            return false;
        }
        zip_set_file_compression(za, zip_uint64_t(index), deflate ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 0);
    }
    return zip_close(za) == 0; // the buffers are read here, while `parts` still holds them
}

} // namespace XlsxPackage
