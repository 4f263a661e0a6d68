#include "XlsxStyleWriter.h"

#include <xlsxwriter.h>

#include <cmath>

namespace {

constexpr double kDefaultFontSize = 11.0;
constexpr int kFirstCustomNumFmt = 164; // ids below are built in

// The writer takes 0 to mean "no colour"; black has a value of its own.
lxw_color_t writerColor(int rgb)
{
    return rgb == 0 ? lxw_color_t(LXW_COLOR_BLACK) : lxw_color_t(rgb);
}

// Black text is what the written workbook shows by default (its theme's first dark colour,
// which is also what most workbooks' default font names).
bool defaultFontColor(int rgb)
{
    return rgb <= 0;
}

bool defaultFont(const XlsxCellStyle& s)
{
    const XlsxCellLook& l = s.look;
    return !s.bold && !l.italic && !l.strike && l.underline == 0 && l.script == 0 && !l.outline && !l.shadow
        && defaultFontColor(l.fontColor)
        && (s.fontSize <= 0 || std::fabs(s.fontSize - kDefaultFontSize) < 1e-9)
        && (l.fontName.isEmpty() || l.fontName == QLatin1String("Calibri"));
}

} // namespace

bool XlsxStyleWriter::isPlain(const XlsxCellStyle& s)
{
    const XlsxCellLook& l = s.look;
    if (s.customNumFmt || s.numFmtId > 0 || !defaultFont(s) || l.pattern != 0)
        return false;
    for (int e = 0; e < XlsxCellLook::EdgeCount; ++e) {
        if (l.border[e] != 0)
            return false;
    }
    return l.horizontal == 0 && l.vertical == 0 && !l.wrap && !l.shrink && l.indent == 0 && l.rotation == 0
        && l.readingOrder == 0 && !l.unlocked && !l.formulaHidden;
}

void XlsxStyleWriter::apply(const XlsxCellStyle& s, lxw_format* fmt)
{
    const XlsxCellLook& l = s.look;
    if (s.customNumFmt)
        format_set_num_format(fmt, s.numFmt.toUtf8().constData());
    else if (s.numFmtId > 0 && s.numFmtId < kFirstCustomNumFmt)
        format_set_num_format_index(fmt, uint8_t(s.numFmtId));

    if (!l.fontName.isEmpty())
        format_set_font_name(fmt, l.fontName.toUtf8().constData());
    if (s.fontSize > 0 && s.fontSize <= 409)
        format_set_font_size(fmt, s.fontSize);
    if (s.bold)
        format_set_bold(fmt);
    if (l.italic)
        format_set_italic(fmt);
    if (l.strike)
        format_set_font_strikeout(fmt);
    if (l.underline > 0 && l.underline <= LXW_UNDERLINE_DOUBLE_ACCOUNTING)
        format_set_underline(fmt, l.underline);
    if (!defaultFontColor(l.fontColor))
        format_set_font_color(fmt, writerColor(l.fontColor));
    if (l.script == 1)
        format_set_font_script(fmt, LXW_FONT_SUPERSCRIPT);
    else if (l.script == 2)
        format_set_font_script(fmt, LXW_FONT_SUBSCRIPT);
    if (l.outline)
        format_set_font_outline(fmt);
    if (l.shadow)
        format_set_font_shadow(fmt);

    // Without a pattern the colours show nothing (and the writer would make the fill solid).
    // A solid fill whose colour is not known is left out: written without one it shows black.
    // Other patterns without a colour are drawn in the automatic colour, as they were.
    if (l.pattern > 0 && l.pattern <= LXW_PATTERN_GRAY_0625 && (l.fgColor >= 0 || l.pattern != LXW_PATTERN_SOLID)) {
        format_set_pattern(fmt, l.pattern);
        if (l.fgColor >= 0)
            format_set_fg_color(fmt, writerColor(l.fgColor));
        // A solid fill shows its foreground colour only (and the writer would swap the two).
        if (l.bgColor >= 0 && l.pattern != LXW_PATTERN_SOLID)
            format_set_bg_color(fmt, writerColor(l.bgColor));
    }

    using SetStyle = void (*)(lxw_format*, uint8_t);
    using SetColor = void (*)(lxw_format*, lxw_color_t);
    static const SetStyle setStyle[] = {format_set_left, format_set_right, format_set_top, format_set_bottom};
    static const SetColor setColor[] = {format_set_left_color, format_set_right_color, format_set_top_color,
                                        format_set_bottom_color};
    for (int e = XlsxCellLook::Left; e <= XlsxCellLook::Bottom; ++e) {
        if (l.border[e] == 0 || l.border[e] > LXW_BORDER_SLANT_DASH_DOT)
            continue;
        setStyle[e](fmt, l.border[e]);
        if (l.borderColor[e] >= 0)
            setColor[e](fmt, writerColor(l.borderColor[e]));
    }
    const quint8 diagonal = l.border[XlsxCellLook::Diagonal];
    if (diagonal > 0 && diagonal <= LXW_BORDER_SLANT_DASH_DOT && (l.diagonalUp || l.diagonalDown)) {
        format_set_diag_type(fmt, l.diagonalUp && l.diagonalDown ? LXW_DIAGONAL_BORDER_UP_DOWN
                                  : l.diagonalUp                  ? LXW_DIAGONAL_BORDER_UP
                                                                  : LXW_DIAGONAL_BORDER_DOWN);
        format_set_diag_border(fmt, diagonal);
        if (l.borderColor[XlsxCellLook::Diagonal] >= 0)
            format_set_diag_color(fmt, writerColor(l.borderColor[XlsxCellLook::Diagonal]));
    }

    if (l.horizontal > 0 && l.horizontal <= LXW_ALIGN_DISTRIBUTED)
        format_set_align(fmt, l.horizontal);
    static const uint8_t vertical[] = {0, LXW_ALIGN_VERTICAL_TOP, LXW_ALIGN_VERTICAL_CENTER, LXW_ALIGN_VERTICAL_BOTTOM,
                                       LXW_ALIGN_VERTICAL_JUSTIFY, LXW_ALIGN_VERTICAL_DISTRIBUTED};
    if (l.vertical > 0 && l.vertical < sizeof(vertical))
        format_set_align(fmt, vertical[l.vertical]);
    if (l.wrap)
        format_set_text_wrap(fmt);
    if (l.shrink)
        format_set_shrink(fmt);
    if (l.indent > 0)
        format_set_indent(fmt, l.indent);
    if (l.readingOrder > 0)
        format_set_reading_order(fmt, l.readingOrder);
    if (l.rotation == 255)
        format_set_rotation(fmt, 270); // letters stacked top to bottom
    else if (l.rotation > 0 && l.rotation <= 90)
        format_set_rotation(fmt, l.rotation);
    else if (l.rotation > 90 && l.rotation <= 180)
        format_set_rotation(fmt, int16_t(90 - l.rotation));
    if (l.unlocked)
        format_set_unlocked(fmt);
    if (l.formulaHidden)
        format_set_hidden(fmt);
}
