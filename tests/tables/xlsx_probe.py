#!/usr/bin/python3
"""Independent workbook reader and writer for the table-file tests (uses openpyxl).

  xlsx_probe.py dump FILE   prints every sheet's cells, formats, fonts and widths as JSON
  xlsx_probe.py make DIR    writes the test workbooks and broken packages into DIR
"""
import datetime
import io
import json
import sys
import zipfile


def dump(path):
    import openpyxl
    wb = openpyxl.load_workbook(path)
    out = {"sheets": []}
    for ws in wb.worksheets:
        cells = []
        for row in ws.iter_rows():
            for c in row:
                if c.value is None:
                    continue
                cells.append({"ref": c.coordinate, "value": c.value, "format": c.number_format,
                              "bold": bool(c.font.b), "size": float(c.font.sz or 0)})
        widths = {k: v.width for k, v in ws.column_dimensions.items() if v.width}
        out["sheets"].append({"name": ws.title, "cells": cells, "widths": widths})
    print(json.dumps(out, ensure_ascii=False, default=str))



def make_basic(d):
    import openpyxl
    wb = openpyxl.Workbook()
    ws = wb.active
    ws.title = "数据"
    ws.append(["代码", "名称", "数量", "开关"])
    ws.append(["600000", "浦发银行", 1200, True])
    ws.append([None, None, None, None])
    ws.append(["000001", " 平安银行\t", 3.25, False])
    ws["C5"] = "=SUM(C2:C4)"
    ws["A6"] = datetime.date(2024, 1, 2)
    ws["B6"] = datetime.datetime(2024, 1, 2, 3, 4, 5)
    ws["C6"] = datetime.time(13, 30, 0)
    ws["D6"] = 0.125
    ws["D6"].number_format = "0.00%"
    second = wb.create_sheet("第二页")
    second.append(["x"])
    wb.save(d + "/openpyxl.xlsx")

    wb = openpyxl.Workbook()
    wb.epoch = openpyxl.utils.datetime.CALENDAR_MAC_1904
    ws = wb.active
    ws["A1"] = datetime.date(2024, 1, 2)
    ws["A2"] = datetime.datetime(2024, 1, 2, 6, 0, 0)
    wb.save(d + "/mac1904.xlsx")


def package(parts):
    buf = io.BytesIO()
    with zipfile.ZipFile(buf, "w", zipfile.ZIP_DEFLATED) as z:
        for name, data in parts.items():
            z.writestr(name, data)
    return buf.getvalue()


CT = b'<?xml version="1.0"?><Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types"/>'
RELS = (b'<?xml version="1.0"?><Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
        b'<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument" Target="xl/workbook.xml"/></Relationships>')
WB = (b'<?xml version="1.0"?><workbook xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main" '
      b'xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships"><sheets>'
      b'<sheet name="S" sheetId="1" r:id="rId1"/></sheets></workbook>')
WBRELS = (b'<?xml version="1.0"?><Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
          b'<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet" Target="worksheets/sheet1.xml"/></Relationships>')


def sheet(body):
    return (b'<?xml version="1.0"?><worksheet xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><sheetData>'
            + body + b'</sheetData></worksheet>')


def make_bad(d):
    good = {"[Content_Types].xml": CT, "_rels/.rels": RELS, "xl/workbook.xml": WB,
            "xl/_rels/workbook.xml.rels": WBRELS,
            "xl/worksheets/sheet1.xml": sheet(b'<row r="1"><c r="A1" t="inlineStr"><is><t>ok</t></is></c></row>')}
    data = package(good)
    open(d + "/good.xlsx", "wb").write(data)
    open(d + "/truncated.xlsx", "wb").write(data[: len(data) // 2])
    missing = dict(good)
    del missing["xl/worksheets/sheet1.xml"]
    open(d + "/missing-sheet.xlsx", "wb").write(package(missing))
    wide = dict(good)
    wide["xl/worksheets/sheet1.xml"] = sheet(b'<row r="1"><c r="A1"><v>1</v></c><c r="BDWGN1"><v>2</v></c></row>')
    open(d + "/million-columns.xlsx", "wb").write(package(wide))
    laughs = b'<?xml version="1.0"?><!DOCTYPE lolz [<!ENTITY lol "lol">' + b''.join(
        b'<!ENTITY lol%d "%s">' % (i, (b'&lol%d;' % (i - 1) if i > 1 else b'&lol;') * 10) for i in range(1, 10)) + b']>'
    entity = dict(good)
    entity["xl/worksheets/sheet1.xml"] = laughs + sheet(b'<row r="1"><c r="A1" t="inlineStr"><is><t>&lol9;</t></is></c></row>')[21:]
    open(d + "/entities.xlsx", "wb").write(package(entity))
    bomb = io.BytesIO()
    with zipfile.ZipFile(bomb, "w", zipfile.ZIP_DEFLATED) as z:
        for name, data in good.items():
            if name != "xl/worksheets/sheet1.xml":
                z.writestr(name, data)
        with z.open("xl/worksheets/sheet1.xml", "w") as f:
            f.write(sheet(b"")[:-22])
            block = b" " * (1 << 20)
            for _ in range(400):
                f.write(block)
            f.write(b"</sheetData></worksheet>")
    open(d + "/bomb.xlsx", "wb").write(bomb.getvalue())


if __name__ == "__main__":
    if sys.argv[1] == "dump":
        dump(sys.argv[2])
    else:
        make_basic(sys.argv[2])
        make_bad(sys.argv[2])
