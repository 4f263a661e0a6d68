#!/usr/bin/python3
"""Independent workbook reader and writer for the table-file tests (uses openpyxl).

  xlsx_probe.py dump FILE  prints every sheet's cells (values, cached results, formats, fonts,
                           array ranges) and column widths as JSON
  xlsx_probe.py book FILE  prints what the workbook holds besides its cells: the first sheet's
                           cell looks, values, merged ranges, rows, hidden columns, pane,
                           hyperlinks and page settings; sheet states, the sheet it opens on,
                           defined names, print settings and array formulas
  xlsx_probe.py make DIR   writes the test workbooks into DIR
"""
import datetime
import json
import sys

import openpyxl
from openpyxl.styles import Alignment, Border, Font, PatternFill, Side
from openpyxl.styles.colors import COLOR_INDEX, Color
from openpyxl.workbook.defined_name import DefinedName
from openpyxl.worksheet.hyperlink import Hyperlink
from openpyxl.writer.theme import theme_xml


def dump(path):
    wb = openpyxl.load_workbook(path)
    cached = openpyxl.load_workbook(path, data_only=True)
    out = {"sheets": []}
    for ws in wb.worksheets:
        arrays = {ref: a.get("ref") for ref, a in ws.formula_attributes.items() if a.get("t") == "array"}
        cells = [{"ref": c.coordinate, "value": c.value, "format": c.number_format, "bold": bool(c.font.b),
                  "size": float(c.font.sz or 0), "cached": cached[ws.title][c.coordinate].value,
                  "array": arrays.get(c.coordinate)} for row in ws.iter_rows() for c in row if c.value is not None]
        widths = {k: v.width for k, v in ws.column_dimensions.items() if v.width}
        out["sheets"].append({"name": ws.title, "cells": cells, "widths": widths})
    print(json.dumps(out, ensure_ascii=False, default=str))


def color(c):
    """A colour as six hex digits, whether stored as ARGB or as a palette entry."""
    if c is not None and c.type == "rgb":
        return c.rgb[-6:].upper()
    if c is not None and c.type == "indexed" and c.indexed < len(COLOR_INDEX):
        return COLOR_INDEX[c.indexed][-6:].upper()
    return None  # a theme colour names no RGB value


def look(c):
    f, fill, b, a = c.font, c.fill, c.border, c.alignment
    sides = {name: [getattr(b, name).style, color(getattr(b, name).color)] for name in ("left", "right", "top", "bottom")
             if getattr(b, name) is not None and getattr(b, name).style}
    out = {"font": [f.name, float(f.sz or 0), bool(f.b), bool(f.i), f.u, bool(f.strike), color(f.color),
                    f.vertAlign, bool(f.outline), bool(f.shadow)],
           "align": [a.horizontal, a.vertical, bool(a.wrap_text), int(a.indent or 0), int(a.text_rotation or 0),
                     int(a.readingOrder or 0)],
           "border": sides, "format": c.number_format}
    if fill.fill_type:  # a solid fill shows its foreground colour only
        out["fill"] = [fill.fill_type, color(fill.fgColor), None if fill.fill_type == "solid" else color(fill.bgColor)]
    return out


def link(h):
    """A hyperlink as [target, location, tooltip]; a target "#place" is the place itself."""
    if h.target and h.target.startswith("#") and not h.location:
        return [None, h.target[1:], h.tooltip]
    return [h.target, h.location, h.tooltip]


def page(ws):
    """How the sheet is shown and printed."""
    v, po, ps, m, fit = ws.sheet_view, ws.print_options, ws.page_setup, ws.page_margins, ws.sheet_properties.pageSetUpPr
    tab = ws.sheet_properties.tabColor
    # what a column (here Z) and a row without a size of their own measure
    width = next((d.width for d in ws.column_dimensions.values() if d.min and d.max and d.min <= 26 <= d.max and d.customWidth),
                 ws.sheet_format.defaultColWidth)
    return {"tab": tab.rgb if tab is not None else None, "zoom": v.zoomScale,
            "screenGridlines": v.showGridLines is not False, "zeros": v.showZeros is not False,
            "print": [bool(po.gridLines), bool(po.headings), bool(po.horizontalCentered), bool(po.verticalCentered)],
            "setup": [ps.orientation, str(ps.paperSize), bool(fit and fit.fitToPage), ps.fitToWidth or 1, ps.fitToHeight],
            "margins": [m.left, m.right, m.top, m.bottom, m.header, m.footer],
            "header": ws.oddHeader.center.text, "footer": ws.oddFooter.right.text,
            "defaults": [width, ws.sheet_format.defaultRowHeight if ws.sheet_format.customHeight else None]}


def book(path):
    wb = openpyxl.load_workbook(path)
    ws = wb.worksheets[0]
    cells = [c for row in ws.iter_rows() for c in row]
    hidden_cols = set()
    for d in ws.column_dimensions.values():
        if d.hidden:
            hidden_cols.update(range(d.min, min(d.max, 200) + 1))
    out = {
        "looks": {c.coordinate: look(c) for c in cells if c.has_style},
        "values": {c.coordinate: c.value for c in cells if c.value is not None},
        "merges": sorted(str(r) for r in ws.merged_cells.ranges),
        "rows": {str(r): [d.ht if d.customHeight else None, bool(d.hidden)]
                 for r, d in ws.row_dimensions.items() if d.customHeight or d.hidden},
        "hiddenColumns": sorted(hidden_cols),
        "pane": ws.freeze_panes,
        "links": {c.coordinate: link(c.hyperlink) for c in cells if c.hyperlink is not None},
        "page": page(ws),
        "sheets": [[s.title, s.sheet_state] for s in wb.worksheets],
        "active": wb.active.title,
        "firstSheet": wb.views[0].firstSheet or 0,
        "names": sorted(([n.name, n.localSheetId, n.attr_text] for n in wb.defined_names.definedName),
                        key=lambda n: (n[0], str(n[1]))),
        "print": {s.title: [s.print_area, s.print_title_rows, s.print_title_cols] for s in wb.worksheets
                  if s.print_area or s.print_title_rows or s.print_title_cols},
        "arrays": {s.title + "!" + ref: a.get("ref") for s in wb.worksheets
                   for ref, a in s.formula_attributes.items() if a.get("t") == "array"},
    }
    print(json.dumps(out, ensure_ascii=False, default=str))


def new_book(title="Sheet1"):  # Sheet1: where appended rows go
    wb = openpyxl.Workbook()
    wb.active.title = title
    return wb, wb.active


def make_state(d):
    """Workbook-wide state a user sets up: hidden sheets, the sheet it opens on, names, print settings."""
    wb, ws = new_book()
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
    for name, text, local in (("Rate", "0.96", None), ("代码表", "Sheet1!$A$2:$A$3", None), ("Local", "'My Data'!$A$1", 3),
                              ("Local", "Sheet1!$B$2", 0)):
        wb.defined_names.append(DefinedName(name, attr_text=text, localSheetId=local))
    wb.defined_names.append(DefinedName("Secret", attr_text="'参数'!$A$1", localSheetId=1, hidden=True))
    wb.save(d + "/state.xlsx")


def make_styled(d):
    """A sheet with what a user lays out by hand: merges, heights, hidden parts, looks, page."""
    wb, ws = new_book()
    for row in (["季度汇总", None, None, "备注"], ["代码", "名称", "金额", "说明"], ["600000", "浦发银行", 1200.5, "见官网"],
                ["000001", "平安银行", 3.25, "转到明细"], [None] * 4, ["合计", None, "=C3+C4", None]):
        ws.append(row)
    for cells in ("A1:C1", "A6:B6", "D4:D5"):
        ws.merge_cells(cells)
    ws["A1"].font = Font(name="宋体", size=16, bold=True, italic=True, color="FFC00000")
    ws["A1"].alignment = Alignment(horizontal="center", vertical="center")
    ws["A1"].fill = PatternFill("solid", fgColor="FFFFF2CC")
    ws["A2"].border = Border(left=Side(style="thin", color="FF4472C4"), right=Side(style="double", color=Color(indexed=10)),
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
    ws.sheet_view.showGridLines = ws.sheet_view.showZeros = False
    ws.print_options.gridLines = ws.print_options.headings = ws.print_options.horizontalCentered = True
    ws.page_setup.orientation = "landscape"
    ws.page_setup.paperSize = ws.PAPERSIZE_A4
    ws.sheet_properties.pageSetUpPr.fitToPage = True
    ws.page_setup.fitToHeight = 0
    ws.page_margins.left, ws.page_margins.header = 0.25, 0.4
    ws.oddHeader.center.text = "&A"
    ws.oddFooter.right.text = "Page &P"
    ws.sheet_format.defaultColWidth = 15
    ws.sheet_format.defaultRowHeight = 20
    ws.sheet_format.customHeight = True
    wb.create_sheet("明细").append(["x"])
    wb.save(d + "/styled.xlsx")


def make_themed(d):
    """Cells coloured from the theme, whose hyperlink colour is not the default one."""
    wb, ws = new_book()
    wb.loaded_theme = theme_xml.replace('<a:srgbClr val="0000FF"/>', '<a:srgbClr val="0563C1"/>')
    ws.append(["表头", "链接", "金额", "未知"])
    ws["A1"].font = Font(color=Color(theme=0))
    ws["A1"].fill = PatternFill("solid", fgColor=Color(theme=3))
    ws["B1"].font = Font(color=Color(theme=10), underline="single")
    ws["C1"].fill = PatternFill("solid", fgColor=Color(theme=4, tint=0.3999))
    ws["C1"].border = Border(bottom=Side(style="thin", color=Color(theme=5, tint=-0.25)))
    ws["D1"].fill = PatternFill("solid", fgColor=Color(theme=12))
    wb.save(d + "/themed.xlsx")


def make_basic(d):
    """Shared strings, numbers, booleans, dates, a formula and empty rows; and the 1904 date system."""
    wb, ws = new_book("数据")
    for row in (["代码", "名称", "数量", "开关"], ["600000", "浦发银行", 1200, True], [None] * 4,
                ["000001", " 平安银行\t", 3.25, False], [None, None, "=SUM(C2:C4)"],
                [datetime.date(2024, 1, 2), datetime.datetime(2024, 1, 2, 3, 4, 5), datetime.time(13, 30), 0.125]):
        ws.append(row)
    ws["D6"].number_format = "0.00%"
    wb.create_sheet("第二页").append(["x"])
    wb.save(d + "/openpyxl.xlsx")

    wb, ws = new_book()
    wb.epoch = openpyxl.utils.datetime.CALENDAR_MAC_1904
    for value in (datetime.date(2024, 1, 2), datetime.datetime(2024, 1, 2, 6, 0, 0), datetime.time(13, 30), 1.5, 12.5):
        ws.append([value])
    ws["A4"].number_format = "[h]:mm"  # an elapsed time
    wb.save(d + "/mac1904.xlsx")


if __name__ == "__main__":
    if sys.argv[1] == "dump":
        dump(sys.argv[2])
    elif sys.argv[1] == "book":
        book(sys.argv[2])
    else:
        for make in (make_basic, make_state, make_styled, make_themed):
            make(sys.argv[2])
