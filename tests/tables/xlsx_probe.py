#!/usr/bin/python3
"""Independent workbook reader and writer for the table-file tests (uses openpyxl).

  xlsx_probe.py dump FILE   prints every sheet's cells, formats, fonts and widths as JSON
  xlsx_probe.py layout FILE prints what the first sheet holds besides values: cell looks,
                            merged ranges, rows, hidden columns, the pane, hyperlinks
  xlsx_probe.py book FILE   prints what the workbook holds besides its sheets' cells: sheet
                            states, the sheet it opens on, defined names, print settings,
                            array formulas, and the first sheet's values and cached results
  xlsx_probe.py make DIR    writes the test workbooks and broken packages into DIR
  xlsx_probe.py make-book FILE  writes a workbook with hidden sheets, names and arrays
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



def color(c):
    """A colour as six hex digits, whether stored as ARGB or as a palette entry."""
    from openpyxl.styles.colors import COLOR_INDEX
    if c is None:
        return None
    if c.type == "rgb":
        return c.rgb[-6:].upper()
    if c.type == "indexed":
        return COLOR_INDEX[c.indexed][-6:].upper() if c.indexed < len(COLOR_INDEX) else None
    return None  # a theme colour names no RGB value


def look(c):
    f, fill, b, a = c.font, c.fill, c.border, c.alignment
    sides = {}
    for name in ("left", "right", "top", "bottom"):
        side = getattr(b, name)
        if side is not None and side.style:
            sides[name] = [side.style, color(side.color)]
    out = {"font": [f.name, float(f.sz or 0), bool(f.b), bool(f.i), f.u, bool(f.strike), color(f.color),
                    f.vertAlign, bool(f.outline), bool(f.shadow)],
           "align": [a.horizontal, a.vertical, bool(a.wrap_text), int(a.indent or 0), int(a.text_rotation or 0),
                     int(a.readingOrder or 0)],
           "border": sides, "format": c.number_format}
    if fill.fill_type:
        # a solid fill shows its foreground colour only
        out["fill"] = [fill.fill_type, color(fill.fgColor), None if fill.fill_type == "solid" else color(fill.bgColor)]
    return out


def layout(path):
    import openpyxl
    ws = openpyxl.load_workbook(path).worksheets[0]
    hidden_cols = set()
    for d in ws.column_dimensions.values():
        if d.hidden:
            hidden_cols.update(range(d.min, min(d.max, 200) + 1))
    out = {
        "looks": {c.coordinate: look(c) for row in ws.iter_rows() for c in row if c.has_style},
        "values": {c.coordinate: c.value for row in ws.iter_rows() for c in row if c.value is not None},
        "merges": sorted(str(r) for r in ws.merged_cells.ranges),
        "rows": {str(r): [d.ht if d.customHeight else None, bool(d.hidden)]
                 for r, d in ws.row_dimensions.items() if d.customHeight or d.hidden},
        "hiddenColumns": sorted(hidden_cols),
        "pane": ws.freeze_panes,
        "links": {c.coordinate: link(c.hyperlink) for row in ws.iter_rows() for c in row if c.hyperlink is not None},
        "page": page(ws),
    }
    print(json.dumps(out, ensure_ascii=False, default=str))


def link(h):
    """A hyperlink as [target, location, tooltip]; a target "#place" is the place itself."""
    if h.target and h.target.startswith("#") and not h.location:
        return [None, h.target[1:], h.tooltip]
    return [h.target, h.location, h.tooltip]


def page(ws):
    """How the sheet is shown and printed."""
    v, po, ps, m = ws.sheet_view, ws.print_options, ws.page_setup, ws.page_margins
    tab = ws.sheet_properties.tabColor
    fit = ws.sheet_properties.pageSetUpPr
    return {"tab": tab.rgb if tab is not None else None, "zoom": v.zoomScale,
            "screenGridlines": v.showGridLines is not False, "zeros": v.showZeros is not False,
            "print": [bool(po.gridLines), bool(po.headings), bool(po.horizontalCentered), bool(po.verticalCentered)],
            "setup": [ps.orientation, str(ps.paperSize), bool(fit and fit.fitToPage), ps.fitToWidth or 1, ps.fitToHeight],
            "margins": [m.left, m.right, m.top, m.bottom, m.header, m.footer],
            "header": ws.oddHeader.center.text, "footer": ws.oddFooter.right.text,
            # what a column and a row without a size of their own measure
            "defaults": [width_of(ws, 26), ws.sheet_format.defaultRowHeight if ws.sheet_format.customHeight else None]}


def width_of(ws, index):
    for d in ws.column_dimensions.values():
        if d.min and d.max and d.min <= index <= d.max and d.customWidth:
            return d.width
    return ws.sheet_format.defaultColWidth


def book(path):
    import openpyxl
    wb = openpyxl.load_workbook(path)
    cached = openpyxl.load_workbook(path, data_only=True).worksheets[0]
    first = wb.worksheets[0]
    out = {
        "sheets": [[ws.title, ws.sheet_state] for ws in wb.worksheets],
        "active": wb.active.title,
        "firstSheet": wb.views[0].firstSheet or 0,
        "names": sorted(([n.name, n.localSheetId, n.attr_text] for n in wb.defined_names.definedName),
                        key=lambda n: (n[0], str(n[1]))),
        "print": {ws.title: [ws.print_area, ws.print_title_rows, ws.print_title_cols] for ws in wb.worksheets
                  if ws.print_area or ws.print_title_rows or ws.print_title_cols},
        "arrays": {ws.title + "!" + ref: a.get("ref") for ws in wb.worksheets
                   for ref, a in ws.formula_attributes.items() if a.get("t") == "array"},
        "values": {c.coordinate: c.value for row in first.iter_rows() for c in row if c.value is not None},
        "cached": {c.coordinate: c.value for row in cached.iter_rows() for c in row if c.value is not None},
    }
    print(json.dumps(out, ensure_ascii=False, default=str))


def make_book(path):
    """Workbook-wide state a user sets up: hidden sheets, the sheet it opens on, names."""
    import openpyxl
    from openpyxl.workbook.defined_name import DefinedName
    wb = openpyxl.Workbook()
    ws = wb.active
    ws.title = "Sheet1"  # where appended rows go
    ws.append(["代码", "数量", "两倍"])
    ws.append(["600000", 2, "=B2:B3*2"])
    ws.append(["000001", 3, 6])
    ws.formula_attributes["C2"] = {"t": "array", "ref": "C2:C3"}
    ws["D1"] = "=SUM(B2:B3*B2:B3)"
    ws.formula_attributes["D1"] = {"t": "array", "ref": "D1"}
    ws.print_area = "A1:C20"
    ws.print_title_rows = "1:1"
    wb.create_sheet("参数").sheet_state = "hidden"
    wb.create_sheet("内部").sheet_state = "veryHidden"
    data = wb.create_sheet("My Data")
    data["A1"] = 7
    data.print_title_cols = "A:B"
    wb.create_sheet("尾页")["A1"] = 8
    year = wb.create_sheet("2020")  # a name a formula must quote although it is plain
    year.append([1, 2, 3])
    year.print_area = "A1:C3"
    year.print_title_rows = "1:2"
    wb.active = 3
    wb.views[0].firstSheet = 2
    wb.defined_names.append(DefinedName("Rate", attr_text="0.96"))
    wb.defined_names.append(DefinedName("代码表", attr_text="Sheet1!$A$2:$A$3"))
    wb.defined_names.append(DefinedName("Local", attr_text="'My Data'!$A$1", localSheetId=3))
    wb.defined_names.append(DefinedName("Local", attr_text="Sheet1!$B$2", localSheetId=0))
    wb.defined_names.append(DefinedName("Secret", attr_text="'参数'!$A$1", localSheetId=1, hidden=True))
    wb.save(path)


def make_styled(d):
    """A sheet with what a user lays out by hand: merges, heights, hidden parts, looks, page."""
    import openpyxl
    from openpyxl.styles import Alignment, Border, Font, PatternFill, Side
    from openpyxl.styles.colors import Color
    from openpyxl.worksheet.hyperlink import Hyperlink
    wb = openpyxl.Workbook()
    ws = wb.active
    ws.title = "Sheet1"  # where appended rows go
    ws.append(["季度汇总", None, None, "备注"])
    ws.append(["代码", "名称", "金额", "说明"])
    ws.append(["600000", "浦发银行", 1200.5, "见官网"])
    ws.append(["000001", "平安银行", 3.25, "转到明细"])
    ws.append([None, None, None, None])
    ws.append(["合计", None, "=C3+C4", None])
    ws.merge_cells("A1:C1")
    ws.merge_cells("A6:B6")
    ws.merge_cells("D4:D5")
    ws["A1"].font = Font(name="宋体", size=16, bold=True, italic=True, color="FFC00000")
    ws["A1"].alignment = Alignment(horizontal="center", vertical="center")
    ws["A1"].fill = PatternFill("solid", fgColor="FFFFF2CC")
    thin = Side(style="thin", color="FF4472C4")
    ws["A2"].border = Border(left=thin, right=Side(style="double", color=Color(indexed=10)),
                             top=Side(style="dashed"), bottom=Side(style="medium", color="FF000000"))
    ws["B2"].font = Font(name="Arial", size=9, underline="double", strike=True, color=Color(indexed=12))
    ws["B2"].fill = PatternFill("darkGrid", fgColor="FF00B050", bgColor=Color(indexed=13))
    ws["C2"].alignment = Alignment(horizontal="right", vertical="top", wrap_text=True, indent=2)
    ws["D2"].alignment = Alignment(text_rotation=45)
    ws["D3"].alignment = Alignment(text_rotation=135, horizontal="distributed")
    ws["C3"].number_format = "#,##0.00"
    ws["C4"].font = Font(name="等线", size=11, underline="single", color="FF0563C1")
    ws["B3"].font = Font(name="Calibri", size=11, vertAlign="superscript", outline=True)
    ws["C3"].font = Font(name="Calibri", size=11, vertAlign="subscript", shadow=True)
    ws["A4"].alignment = Alignment(readingOrder=2)
    ws.row_dimensions[1].height = 32.5
    ws.row_dimensions[3].height = 9.75
    ws.row_dimensions[5].hidden = True
    ws.column_dimensions["B"].width = 20
    ws.column_dimensions["E"].hidden = True
    ws.column_dimensions.group("G", "I", hidden=True)
    ws.freeze_panes = "B3"
    ws["D3"].hyperlink = "https://example.com/notice"
    ws["D3"].hyperlink.tooltip = "公告"
    ws["D4"].hyperlink = Hyperlink(ref="D4", location="'明细'!A1", display="转到明细")
    ws["B4"].hyperlink = "#'明细'!A1"  # a place in the workbook, written as a target
    ws.sheet_properties.tabColor = "FF00B050"
    ws.sheet_view.zoomScale = 85
    ws.sheet_view.showGridLines = False
    ws.sheet_view.showZeros = False
    ws.print_options.gridLines = True
    ws.print_options.headings = True
    ws.print_options.horizontalCentered = True
    ws.page_setup.orientation = "landscape"
    ws.page_setup.paperSize = ws.PAPERSIZE_A4
    ws.sheet_properties.pageSetUpPr.fitToPage = True
    ws.page_setup.fitToHeight = 0
    ws.page_margins.left = 0.25
    ws.page_margins.header = 0.4
    ws.oddHeader.center.text = "&A"
    ws.oddFooter.right.text = "Page &P"
    ws.sheet_format.defaultColWidth = 15
    ws.sheet_format.defaultRowHeight = 20
    ws.sheet_format.customHeight = True
    wb.create_sheet("明细").append(["x"])
    wb.save(d + "/styled.xlsx")


def make_themed(d):
    """Cells coloured from the theme, whose hyperlink colour is not the default one."""
    import openpyxl
    from openpyxl.styles import Border, Font, PatternFill, Side
    from openpyxl.styles.colors import Color
    from openpyxl.writer.theme import theme_xml
    wb = openpyxl.Workbook()
    wb.loaded_theme = theme_xml.replace('<a:srgbClr val="0000FF"/>', '<a:srgbClr val="0563C1"/>')
    ws = wb.active
    ws.title = "Sheet1"  # where appended rows go
    ws.append(["表头", "链接", "金额", "未知"])
    ws["A1"].font = Font(color=Color(theme=0))
    ws["A1"].fill = PatternFill("solid", fgColor=Color(theme=3))
    ws["B1"].font = Font(color=Color(theme=10), underline="single")
    ws["C1"].fill = PatternFill("solid", fgColor=Color(theme=4, tint=0.3999))
    ws["C1"].border = Border(bottom=Side(style="thin", color=Color(theme=5, tint=-0.25)))
    ws["D1"].fill = PatternFill("solid", fgColor=Color(theme=12))
    wb.save(d + "/themed.xlsx")


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


def make_layout_junk(d):
    """Sheets whose layout entries are broken or absurd, next to a few sane ones."""
    styles = (b'<?xml version="1.0"?><styleSheet xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main">'
              b'<fonts count="3"><font><sz val="11"/><name val="Calibri"/></font>'
              b'<font><b/><color rgb="GG0000"/><name val="Calibri"/></font>'
              b'<font><i/><color indexed="99999"/><sz val="1e999"/><name val="Calibri"/></font></fonts>'
              b'<fills count="1"><fill><patternFill patternType="bogus"><fgColor rgb="FF12"/></patternFill></fill></fills>'
              b'<borders count="1"><border><left style="thick"><color rgb="zzzzzzzz"/></left></border></borders>'
              b'<cellXfs count="3"><xf fontId="0"/><xf fontId="1" borderId="0" fillId="0"/>'
              b'<xf fontId="2" fillId="7" borderId="-3" numFmtId="999999"><alignment textRotation="999" indent="-4" horizontal="sideways"/></xf>'
              b'</cellXfs><colors><indexedColors><rgbColor rgb="nonsense"/></indexedColors></colors></styleSheet>')
    wbrels = WBRELS.replace(b'</Relationships>', b'<Relationship Id="rId9" Type="http://schemas.openxmlformats.org/'
                            b'officeDocument/2006/relationships/styles" Target="styles.xml"/></Relationships>')
    rows = (b'<row r="1" ht="1e400" customHeight="1"><c r="A1" s="1" t="inlineStr"><is><t>a</t></is></c></row>'
            b'<row r="2" ht="-5" customHeight="1" hidden="1"><c r="A2" s="2"><v>2</v></c></row>'
            b'<row r="3" ht="nan" customHeight="1" outlineLevel="99"><c r="A3" s="77"><v>3</v></c></row>'
            b'<row r="4" ht="24" customHeight="1"><c r="A4"><v>4</v></c><c r="B4"><v>5</v></c></row>')
    tail = (b'<mergeCells><mergeCell ref="A1:XFD1048576"/><mergeCell ref="ZZZZ1:A1"/><mergeCell ref="A0:B2"/>'
            b'<mergeCell ref="B2:A"/><mergeCell/><mergeCell ref="A4:B4"/></mergeCells>'
            b'<hyperlinks><hyperlink ref="A1" r:id="rId404"/><hyperlink ref="!!"/><hyperlink ref="A2"/>'
            b'<hyperlink ref="A3:B4" location="S!A4"/></hyperlinks>')
    body = (b'<?xml version="1.0"?><worksheet xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main" '
            b'xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships">'
            b'<sheetViews><sheetView workbookViewId="0"><pane xSplit="-1" ySplit="99999999" state="frozen"/>'
            b'</sheetView></sheetViews><cols><col min="3" max="1" width="inf" hidden="1"/><col min="0" max="99999"'
            b' style="123456"/><col min="2" max="2" width="-7"/></cols><sheetData>' + rows + b'</sheetData>' + tail
            + b'</worksheet>')
    parts = {"[Content_Types].xml": CT, "_rels/.rels": RELS, "xl/workbook.xml": WB, "xl/_rels/workbook.xml.rels": wbrels,
             "xl/styles.xml": styles, "xl/worksheets/sheet1.xml": body}
    open(d + "/layout-junk.xlsx", "wb").write(package(parts))
    merges = b''.join(b'<mergeCell ref="A%d:B%d"/>' % (r, r) for r in range(1, 1000001))
    many = dict(parts)
    many["xl/worksheets/sheet1.xml"] = sheet(b'<row r="1"><c r="A1"><v>1</v></c></row>').replace(
        b'</worksheet>', b'<mergeCells>' + merges + b'</mergeCells></worksheet>')
    open(d + "/million-merges.xlsx", "wb").write(package(many))


def make_bad(d):
    good = {"[Content_Types].xml": CT, "_rels/.rels": RELS, "xl/workbook.xml": WB,
            "xl/_rels/workbook.xml.rels": WBRELS,
            "xl/worksheets/sheet1.xml": sheet(b'<row r="1"><c r="A1" t="inlineStr"><is><t>ok</t></is></c></row>')}
    data = package(good)
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
    elif sys.argv[1] == "layout":
        layout(sys.argv[2])
    elif sys.argv[1] == "book":
        book(sys.argv[2])
    elif sys.argv[1] == "make-book":
        make_book(sys.argv[2])
    else:
        make_basic(sys.argv[2])
        make_styled(sys.argv[2])
        make_themed(sys.argv[2])
        make_layout_junk(sys.argv[2])
        make_bad(sys.argv[2])
