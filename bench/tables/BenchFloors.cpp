#include "BenchFloors.h"

#include <QFile>

#include <expat.h>
#include <xlsxwriter.h>
#include <zip.h>

#include <cstring>
#include <string>
#include <vector>

namespace BenchFloors {

struct PreparedTable {
    struct Cell {
        bool number = false;
        double value = 0;
        QByteArray text;
    };
    QList<QByteArray> header;
    std::vector<std::vector<Cell>> rows;
    std::vector<QByteArray> columnFormats; // empty for a text column
};

PreparedTable* prepare(const QList<QStringList>& table, const QSet<int>& numericColumns)
{
    auto* p = new PreparedTable;
    if (table.isEmpty())
        return p;
    for (const QString& h : table.first())
        p->header.append(h.toUtf8());
    p->columnFormats.resize(size_t(p->header.size()));
    for (int col : numericColumns) {
        int decimals = 0;
        for (int r = 1; r < table.size(); ++r) {
            const QString& t = table.at(r).value(col);
            const int dot = t.lastIndexOf(QLatin1Char('.'));
            decimals = qMax(decimals, qMin(dot >= 0 ? t.size() - dot - 1 : 0, 5));
        }
        if (size_t(col) < p->columnFormats.size())
            p->columnFormats[size_t(col)] = decimals ? "0." + QByteArray(decimals, '0') : QByteArray("0");
    }
    p->rows.reserve(size_t(table.size()));
    for (int r = 1; r < table.size(); ++r) {
        std::vector<PreparedTable::Cell> row;
        row.reserve(size_t(table.at(r).size()));
        for (int c = 0; c < table.at(r).size(); ++c) {
            PreparedTable::Cell cell;
            cell.number = numericColumns.contains(c);
            if (cell.number)
                cell.value = table.at(r).at(c).toDouble();
            else
                cell.text = table.at(r).at(c).toUtf8();
            row.push_back(std::move(cell));
        }
        p->rows.push_back(std::move(row));
    }
    return p;
}

void release(PreparedTable* prepared)
{
    delete prepared;
}

bool writeWorkbook(const PreparedTable* p, const QString& path)
{
    lxw_workbook_options options = {};
    options.constant_memory = LXW_TRUE;
    options.use_zip64 = LXW_TRUE;
    lxw_workbook* wb = workbook_new_opt(QFile::encodeName(path).constData(), &options);
    if (!wb)
        return false;
    lxw_worksheet* ws = workbook_add_worksheet(wb, "Sheet1");
    lxw_format* bold = workbook_add_format(wb);
    format_set_bold(bold);
    format_set_font_size(bold, 14);
    std::vector<lxw_format*> formats(p->columnFormats.size(), nullptr);
    for (size_t c = 0; c < formats.size(); ++c) {
        if (!p->columnFormats[c].isEmpty()) {
            formats[c] = workbook_add_format(wb);
            format_set_num_format(formats[c], p->columnFormats[c].constData());
        }
    }
    for (int c = 0; c < p->header.size(); ++c)
        worksheet_write_string(ws, 0, lxw_col_t(c), p->header.at(c).constData(), bold);
    lxw_row_t r = 1;
    for (const auto& row : p->rows) {
        for (size_t c = 0; c < row.size(); ++c) {
            lxw_format* fmt = c < formats.size() ? formats[c] : nullptr;
            if (row[c].number)
                worksheet_write_number(ws, r, lxw_col_t(c), row[c].value, fmt);
            else
                worksheet_write_string(ws, r, lxw_col_t(c), row[c].text.constData(), fmt);
        }
        ++r;
    }
    for (size_t c = 0; c < formats.size(); ++c)
        worksheet_set_column(ws, lxw_col_t(c), lxw_col_t(c), 30, formats[c]);
    return workbook_close(wb) == LXW_NO_ERROR;
}

namespace {

const char* local(const char* name)
{
    const char* colon = std::strrchr(name, ':');
    return colon ? colon + 1 : name;
}

struct Collector {
    std::vector<QString>* shared = nullptr;
    QList<QStringList>* rows = nullptr;
    QStringList row;
    std::string text;
    bool capture = false;
    bool sharedCell = false;
    bool inSi = false;
};

void XMLCALL sheetStart(void* data, const XML_Char* name, const XML_Char** atts)
{
    auto* c = static_cast<Collector*>(data);
    const char* n = local(name);
    if (n[0] == 'v' && n[1] == 0) {
        c->capture = true;
        c->text.clear();
    } else if (n[0] == 't' && n[1] == 0) {
        c->capture = true;
    } else if (n[0] == 'c' && n[1] == 0) {
        c->text.clear();
        c->sharedCell = false;
        for (const XML_Char** a = atts; *a; a += 2) {
            if (std::strcmp(local(a[0]), "t") == 0)
                c->sharedCell = std::strcmp(a[1], "s") == 0;
        }
    } else if (std::strcmp(n, "row") == 0) {
        c->row = QStringList();
        c->row.reserve(10);
    }
}

void XMLCALL sheetEnd(void* data, const XML_Char* name)
{
    auto* c = static_cast<Collector*>(data);
    const char* n = local(name);
    if ((n[0] == 'v' || n[0] == 't') && n[1] == 0) {
        c->capture = false;
    } else if (n[0] == 'c' && n[1] == 0) {
        if (c->sharedCell) {
            const size_t i = size_t(std::atol(c->text.c_str()));
            c->row.append(i < c->shared->size() ? c->shared->at(i) : QString());
        } else {
            c->row.append(QString::fromUtf8(c->text.data(), int(c->text.size())));
        }
    } else if (std::strcmp(n, "row") == 0) {
        c->rows->append(c->row);
    }
}

void XMLCALL sharedStart(void* data, const XML_Char* name, const XML_Char**)
{
    auto* c = static_cast<Collector*>(data);
    const char* n = local(name);
    if (std::strcmp(n, "si") == 0)
        c->text.clear();
    else if (n[0] == 't' && n[1] == 0)
        c->capture = true;
}

void XMLCALL sharedEnd(void* data, const XML_Char* name)
{
    auto* c = static_cast<Collector*>(data);
    const char* n = local(name);
    if (std::strcmp(n, "si") == 0)
        c->shared->push_back(QString::fromUtf8(c->text.data(), int(c->text.size())));
    else if (n[0] == 't' && n[1] == 0)
        c->capture = false;
}

void XMLCALL text(void* data, const XML_Char* s, int len)
{
    auto* c = static_cast<Collector*>(data);
    if (c->capture)
        c->text.append(s, size_t(len));
}

bool stream(zip_t* z, const char* part, XML_StartElementHandler start, XML_EndElementHandler end, Collector& c)
{
    zip_file_t* f = zip_fopen(z, part, 0);
    if (!f)
        return false;
    XML_Parser parser = XML_ParserCreate("UTF-8");
    XML_SetUserData(parser, &c);
    XML_SetElementHandler(parser, start, end);
    XML_SetCharacterDataHandler(parser, text);
    char buffer[64 * 1024];
    bool ok = true;
    for (;;) {
        const zip_int64_t got = zip_fread(f, buffer, sizeof buffer);
        if (got < 0 || XML_Parse(parser, buffer, int(qMax<zip_int64_t>(got, 0)), got == 0) == XML_STATUS_ERROR) {
            ok = false;
            break;
        }
        if (got == 0)
            break;
    }
    XML_ParserFree(parser);
    zip_fclose(f);
    return ok;
}

} // namespace

QList<QStringList> readWorkbook(const QString& path)
{
    QList<QStringList> rows;
    int code = 0;
    zip_t* z = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &code);
    if (!z)
        return rows;
    std::vector<QString> shared;
    Collector c;
    c.shared = &shared;
    c.rows = &rows;
    if (zip_name_locate(z, "xl/sharedStrings.xml", 0) >= 0)
        stream(z, "xl/sharedStrings.xml", sharedStart, sharedEnd, c);
    stream(z, "xl/worksheets/sheet1.xml", sheetStart, sheetEnd, c);
    zip_close(z);
    return rows;
}

} // namespace BenchFloors
