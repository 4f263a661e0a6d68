#include "XlsxStyles.h"

#include "VantorLogging.h"
#include "XlsxTheme.h"
#include "XlsxWorkbookReader.h"
#include "XlsxXmlReader.h"

#include <QHash>

#include <cstdlib>
#include <cstring>

namespace {

constexpr int kMaxStyles = 1 << 20;
constexpr int kPaletteSize = 64;

// While parsing, a colour is 0xRRGGBB, -1 for none, or -(2 + n) for entry n of the
// palette, which the file may redefine after the entries that use it.
constexpr int kNoColor = -1;

// A colour as a format gives it; its tint applies once the palette is known.
struct ParsedColor {
    int value = kNoColor;
    double tint = 0;
};

const char* const kPatterns[] = {"none", "solid", "mediumGray", "darkGray", "lightGray", "darkHorizontal",
                                 "darkVertical", "darkDown", "darkUp", "darkGrid", "darkTrellis", "lightHorizontal",
                                 "lightVertical", "lightDown", "lightUp", "lightGrid", "lightTrellis", "gray125",
                                 "gray0625"};
const char* const kBorderStyles[] = {"none", "thin", "medium", "dashed", "dotted", "thick", "double", "hair",
                                     "mediumDashed", "dashDot", "mediumDashDot", "dashDotDot", "mediumDashDotDot",
                                     "slantDashDot"};
const char* const kHorizontal[] = {"general", "left", "center", "right", "fill", "justify", "centerContinuous",
                                   "distributed"};
const char* const kVertical[] = {"", "top", "center", "bottom", "justify", "distributed"};
const char* const kUnderlines[] = {"none", "single", "double", "singleAccounting", "doubleAccounting"};

template <size_t N>
int indexOfName(const char* const (&names)[N], const char* value)
{
    for (size_t i = 0; i < N; ++i) {
        if (std::strcmp(names[i], value) == 0)
            return int(i);
    }
    return -1;
}

bool isTrue(const char* v)
{
    return v && (std::strcmp(v, "1") == 0 || std::strcmp(v, "true") == 0);
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

int XlsxStyles::parseRgb(const char* v)
{
    if (!v)
        return kNoColor;
    const size_t n = std::strlen(v);
    if (n != 8 && n != 6)
        return kNoColor;
    int rgb = 0;
    for (size_t i = n - 6; i < n; ++i) {
        const int d = hexDigit(v[i]);
        if (d < 0)
            return kNoColor;
        rgb = rgb * 16 + d;
    }
    for (size_t i = 0; i < n - 6; ++i) {
        if (hexDigit(v[i]) < 0)
            return kNoColor;
    }
    return rgb;
}

namespace {

struct FontInfo {
    bool bold = false;
    double size = 0;
    QString name;
    bool italic = false;
    bool strike = false;
    quint8 underline = 0;
    quint8 script = 0;
    bool outline = false;
    bool shadow = false;
    ParsedColor color;
};

struct FillInfo {
    quint8 pattern = 0;
    ParsedColor fg;
    ParsedColor bg;
};

struct BorderInfo {
    quint8 style[XlsxCellLook::EdgeCount] = {};
    ParsedColor color[XlsxCellLook::EdgeCount];
    bool up = false;
    bool down = false;
};

struct XfInfo {
    int numFmtId = 0;
    int fontId = 0;
    int fillId = 0;
    int borderId = 0;
    XlsxCellLook align; // alignment and protection only
};

class StylesHandler : public XlsxXmlHandler
{
public:
    explicit StylesHandler(const XlsxTheme& theme) : m_theme(theme) {}

    QHash<int, QString> numFmts;
    QVector<FontInfo> fonts;
    QVector<FillInfo> fills;
    QVector<BorderInfo> borders;
    QVector<XfInfo> xfs;
    QVector<int> palette; // a palette the file defines in place of the default one
    int badColors = 0;

    void startElement(const char* name, const char** atts) override
    {
        switch (m_section) {
        case NumFmts:
            if (std::strcmp(name, "numFmt") == 0) {
                const char* id = XlsxXmlReader::attribute(atts, "numFmtId");
                const char* code = XlsxXmlReader::attribute(atts, "formatCode");
                if (id && code)
                    numFmts.insert(std::atoi(id), QString::fromUtf8(code));
            }
            return;
        case Fonts:
            fontElement(name, atts);
            return;
        case Fills:
            fillElement(name, atts);
            return;
        case Borders:
            borderElement(name, atts);
            return;
        case CellXfs:
            xfElement(name, atts);
            return;
        case Palette:
            if (std::strcmp(name, "rgbColor") == 0 && palette.size() < kPaletteSize) {
                const char* rgb = XlsxXmlReader::attribute(atts, "rgb");
                const int c = XlsxStyles::parseRgb(rgb);
                if (c == kNoColor)
                    ++badColors;
                palette.append(c);
            }
            return;
        case None:
            break;
        }
        if (std::strcmp(name, "numFmts") == 0)
            m_section = NumFmts;
        else if (std::strcmp(name, "fonts") == 0)
            m_section = Fonts;
        else if (std::strcmp(name, "fills") == 0)
            m_section = Fills;
        else if (std::strcmp(name, "borders") == 0)
            m_section = Borders;
        else if (std::strcmp(name, "cellXfs") == 0)
            m_section = CellXfs;
        else if (std::strcmp(name, "indexedColors") == 0)
            m_section = Palette;
    }

    void endElement(const char* name) override
    {
        if (std::strcmp(name, "numFmts") == 0 || std::strcmp(name, "fonts") == 0 || std::strcmp(name, "fills") == 0
            || std::strcmp(name, "borders") == 0 || std::strcmp(name, "cellXfs") == 0
            || std::strcmp(name, "indexedColors") == 0) {
            // Whatever item was open belongs to the list that ends here (or to one that a
            // misplaced list name cut short): none of the next list's entries is open yet.
            m_section = None;
            m_inItem = false;
            m_edge = -1;
        } else if (std::strcmp(name, "font") == 0 || std::strcmp(name, "fill") == 0 || std::strcmp(name, "border") == 0
                   || std::strcmp(name, "xf") == 0) {
            m_inItem = false;
        } else if (m_section == Borders && std::strcmp(name, "color") != 0) {
            m_edge = -1;
        }
    }

    void characters(const char*, int) override {}

    // A parsed colour in its final form: palette entries looked up, tint applied, -1 for none.
    int resolve(const ParsedColor& c) const
    {
        int rgb = c.value;
        if (rgb < kNoColor) {
            const int index = -(rgb + 2);
            rgb = index < palette.size() ? palette.at(index) : XlsxStyles::paletteColor(index);
        }
        return XlsxTheme::tinted(rgb, c.tint);
    }

private:
    enum Section { None, NumFmts, Fonts, Fills, Borders, CellXfs, Palette };

    // Automatic colours are not kept: they come out in the default colour.
    ParsedColor color(const char** atts)
    {
        ParsedColor c;
        if (const char* rgb = XlsxXmlReader::attribute(atts, "rgb")) {
            c.value = XlsxStyles::parseRgb(rgb);
            if (c.value == kNoColor)
                ++badColors;
        } else if (const char* indexed = XlsxXmlReader::attribute(atts, "indexed")) {
            const int i = std::atoi(indexed);
            if (i >= 0 && i <= 65)
                c.value = -(2 + i);
            else
                ++badColors;
        } else if (const char* theme = XlsxXmlReader::attribute(atts, "theme")) {
            c.value = m_theme.color(std::atoi(theme));
            if (c.value == kNoColor)
                ++badColors;
        }
        if (const char* tint = XlsxXmlReader::attribute(atts, "tint"))
            c.tint = XlsxWorkbookReader::toDouble(tint, int(std::strlen(tint)));
        return c;
    }

    bool grow(int size, const char* what)
    {
        if (size < kMaxStyles)
            return true;
        error = QStringLiteral("too many ") + QLatin1String(what);
        return false;
    }

    void fontElement(const char* name, const char** atts)
    {
        if (std::strcmp(name, "font") == 0) {
            if (!grow(fonts.size(), "fonts"))
                return;
            fonts.append(FontInfo());
            m_inItem = true;
            return;
        }
        if (!m_inItem)
            return;
        FontInfo& f = fonts.last();
        const char* val = XlsxXmlReader::attribute(atts, "val");
        const bool on = !val || (std::strcmp(val, "0") != 0 && std::strcmp(val, "false") != 0);
        if (std::strcmp(name, "b") == 0) {
            f.bold = on;
        } else if (std::strcmp(name, "sz") == 0) {
            if (val)
                f.size = XlsxWorkbookReader::toDouble(val, int(std::strlen(val)));
        } else if (std::strcmp(name, "name") == 0) {
            if (val && std::strlen(val) <= 128)
                f.name = QString::fromUtf8(val);
        } else if (std::strcmp(name, "i") == 0) {
            f.italic = on;
        } else if (std::strcmp(name, "strike") == 0) {
            f.strike = on;
        } else if (std::strcmp(name, "u") == 0) {
            f.underline = val ? quint8(qMax(0, indexOfName(kUnderlines, val))) : 1;
        } else if (std::strcmp(name, "color") == 0) {
            f.color = color(atts);
        } else if (std::strcmp(name, "vertAlign") == 0) {
            f.script = !val ? 0 : std::strcmp(val, "superscript") == 0 ? 1 : std::strcmp(val, "subscript") == 0 ? 2 : 0;
        } else if (std::strcmp(name, "outline") == 0) {
            f.outline = on;
        } else if (std::strcmp(name, "shadow") == 0) {
            f.shadow = on;
        }
    }

    void fillElement(const char* name, const char** atts)
    {
        if (std::strcmp(name, "fill") == 0) {
            if (fills.size() >= kMaxStyles)
                return; // no cell format refers this far
            fills.append(FillInfo());
            m_inItem = true;
            return;
        }
        if (!m_inItem)
            return;
        FillInfo& f = fills.last();
        if (std::strcmp(name, "patternFill") == 0) {
            const char* type = XlsxXmlReader::attribute(atts, "patternType");
            f.pattern = type ? quint8(qMax(0, indexOfName(kPatterns, type))) : 0;
        } else if (std::strcmp(name, "fgColor") == 0) {
            f.fg = color(atts);
        } else if (std::strcmp(name, "bgColor") == 0) {
            f.bg = color(atts);
        }
    }

    void borderElement(const char* name, const char** atts)
    {
        if (std::strcmp(name, "border") == 0) {
            if (borders.size() >= kMaxStyles)
                return;
            BorderInfo b;
            b.up = isTrue(XlsxXmlReader::attribute(atts, "diagonalUp"));
            b.down = isTrue(XlsxXmlReader::attribute(atts, "diagonalDown"));
            borders.append(b);
            m_inItem = true;
            return;
        }
        if (!m_inItem)
            return;
        BorderInfo& b = borders.last();
        if (std::strcmp(name, "color") == 0) {
            if (m_edge >= 0)
                b.color[m_edge] = color(atts);
            return;
        }
        int edge = -1;
        if (std::strcmp(name, "left") == 0 || std::strcmp(name, "start") == 0)
            edge = XlsxCellLook::Left;
        else if (std::strcmp(name, "right") == 0 || std::strcmp(name, "end") == 0)
            edge = XlsxCellLook::Right;
        else if (std::strcmp(name, "top") == 0)
            edge = XlsxCellLook::Top;
        else if (std::strcmp(name, "bottom") == 0)
            edge = XlsxCellLook::Bottom;
        else if (std::strcmp(name, "diagonal") == 0)
            edge = XlsxCellLook::Diagonal;
        if (edge < 0)
            return;
        m_edge = edge;
        const char* style = XlsxXmlReader::attribute(atts, "style");
        b.style[edge] = style ? quint8(qMax(0, indexOfName(kBorderStyles, style))) : 0;
    }

    void xfElement(const char* name, const char** atts)
    {
        if (std::strcmp(name, "xf") == 0) {
            if (!grow(xfs.size(), "styles"))
                return;
            XfInfo xf;
            if (const char* id = XlsxXmlReader::attribute(atts, "numFmtId"))
                xf.numFmtId = std::atoi(id);
            if (const char* id = XlsxXmlReader::attribute(atts, "fontId"))
                xf.fontId = std::atoi(id);
            if (const char* id = XlsxXmlReader::attribute(atts, "fillId"))
                xf.fillId = std::atoi(id);
            if (const char* id = XlsxXmlReader::attribute(atts, "borderId"))
                xf.borderId = std::atoi(id);
            xfs.append(xf);
            m_inItem = true;
            return;
        }
        if (!m_inItem)
            return;
        XlsxCellLook& a = xfs.last().align;
        if (std::strcmp(name, "alignment") == 0) {
            if (const char* h = XlsxXmlReader::attribute(atts, "horizontal"))
                a.horizontal = quint8(qMax(0, indexOfName(kHorizontal, h)));
            if (const char* v = XlsxXmlReader::attribute(atts, "vertical"))
                a.vertical = quint8(qMax(0, indexOfName(kVertical, v)));
            a.wrap = isTrue(XlsxXmlReader::attribute(atts, "wrapText"));
            a.shrink = isTrue(XlsxXmlReader::attribute(atts, "shrinkToFit"));
            if (const char* i = XlsxXmlReader::attribute(atts, "indent"))
                a.indent = quint8(qBound(0, std::atoi(i), 250));
            if (const char* order = XlsxXmlReader::attribute(atts, "readingOrder"))
                a.readingOrder = quint8(qBound(0, std::atoi(order), 2));
            if (const char* r = XlsxXmlReader::attribute(atts, "textRotation")) {
                const int rot = std::atoi(r);
                a.rotation = (rot >= 0 && rot <= 180) || rot == 255 ? quint8(rot) : 0;
            }
        } else if (std::strcmp(name, "protection") == 0) {
            const char* locked = XlsxXmlReader::attribute(atts, "locked");
            a.unlocked = locked && !isTrue(locked);
            a.formulaHidden = isTrue(XlsxXmlReader::attribute(atts, "hidden"));
        }
    }

    const XlsxTheme& m_theme;
    Section m_section = None;
    bool m_inItem = false;
    int m_edge = -1;
};

} // namespace

bool XlsxStyles::isBuiltInDateTimeId(int id)
{
    return (id >= 14 && id <= 22) || (id >= 27 && id <= 36) || (id >= 45 && id <= 47) || (id >= 50 && id <= 58);
}

QString XlsxStyles::builtInFormat(int id)
{
    switch (id) {
    case 0: return QStringLiteral("General");
    case 1: return QStringLiteral("0");
    case 2: return QStringLiteral("0.00");
    case 3: return QStringLiteral("#,##0");
    case 4: return QStringLiteral("#,##0.00");
    case 9: return QStringLiteral("0%");
    case 10: return QStringLiteral("0.00%");
    case 11: return QStringLiteral("0.00E+00");
    case 12: return QStringLiteral("# ?/?");
    case 13: return QStringLiteral("# ?\?/?\?");
    case 14: return QStringLiteral("m/d/yyyy");
    case 15: return QStringLiteral("d-mmm-yy");
    case 16: return QStringLiteral("d-mmm");
    case 17: return QStringLiteral("mmm-yy");
    case 18: return QStringLiteral("h:mm AM/PM");
    case 19: return QStringLiteral("h:mm:ss AM/PM");
    case 20: return QStringLiteral("h:mm");
    case 21: return QStringLiteral("h:mm:ss");
    case 22: return QStringLiteral("m/d/yyyy h:mm");
    case 37: return QStringLiteral("#,##0 ;(#,##0)");
    case 38: return QStringLiteral("#,##0 ;[Red](#,##0)");
    case 39: return QStringLiteral("#,##0.00;(#,##0.00)");
    case 40: return QStringLiteral("#,##0.00;[Red](#,##0.00)");
    case 45: return QStringLiteral("mm:ss");
    case 46: return QStringLiteral("[h]:mm:ss");
    case 47: return QStringLiteral("mmss.0");
    case 48: return QStringLiteral("##0.0E+0");
    case 49: return QStringLiteral("@");
    default: return QString();
    }
}

bool XlsxStyles::isDateTimeFormatCode(const QString& code)
{
    const int n = code.size();
    for (int i = 0; i < n; ++i) {
        const ushort c = code.at(i).unicode();
        switch (c) {
        case '[':
            if (i + 2 < n && code.at(i + 2) == QLatin1Char(']')) {
                const ushort e = code.at(i + 1).toLower().unicode();
                if (e == 'h' || e == 'm' || e == 's')
                    return true;
            }
            while (i < n && code.at(i) != QLatin1Char(']'))
                ++i;
            break;
        case '"':
            ++i;
            while (i < n && code.at(i) != QLatin1Char('"'))
                ++i;
            break;
        case '\\':
        case '_':
        case '*':
            ++i; // the next character is literal (or padding)
            break;
        case ';':
            return false;
        case 'd': case 'D':
        case 'y': case 'Y':
        case 'h': case 'H':
        case 'm': case 'M':
        case 's': case 'S':
            return true;
        default:
            break;
        }
    }
    return false;
}

bool XlsxStyles::load(const XlsxZipArchive& zip, const QString& partName, const XlsxTheme& theme, QString& err)
{
    StylesHandler handler(theme);
    if (!XlsxXmlReader::parsePart(zip, partName, handler, err))
        return false;
    m_styles.clear();
    m_styles.reserve(handler.xfs.size());
    for (const XfInfo& xf : qAsConst(handler.xfs)) {
        XlsxCellStyle s;
        s.numFmtId = xf.numFmtId;
        auto custom = handler.numFmts.constFind(xf.numFmtId);
        if (custom != handler.numFmts.constEnd()) {
            s.customNumFmt = true;
            s.numFmt = custom.value();
            s.isDateTime = isDateTimeFormatCode(s.numFmt);
        } else {
            s.numFmt = builtInFormat(xf.numFmtId);
            s.isDateTime = isBuiltInDateTimeId(xf.numFmtId);
        }
        XlsxCellLook& look = s.look;
        look = xf.align;
        if (xf.fontId >= 0 && xf.fontId < handler.fonts.size()) {
            const FontInfo& font = handler.fonts.at(xf.fontId);
            s.bold = font.bold;
            s.fontSize = font.size;
            look.fontName = font.name;
            look.italic = font.italic;
            look.strike = font.strike;
            look.underline = font.underline;
            look.script = font.script;
            look.outline = font.outline;
            look.shadow = font.shadow;
            look.fontColor = handler.resolve(font.color);
        }
        if (xf.fillId >= 0 && xf.fillId < handler.fills.size()) {
            const FillInfo& fill = handler.fills.at(xf.fillId);
            look.pattern = fill.pattern;
            look.fgColor = handler.resolve(fill.fg);
            look.bgColor = handler.resolve(fill.bg);
        }
        if (xf.borderId >= 0 && xf.borderId < handler.borders.size()) {
            const BorderInfo& border = handler.borders.at(xf.borderId);
            for (int e = 0; e < XlsxCellLook::EdgeCount; ++e) {
                look.border[e] = border.style[e];
                look.borderColor[e] = handler.resolve(border.color[e]);
            }
            look.diagonalUp = border.up;
            look.diagonalDown = border.down;
        }
        m_styles.append(s);
    }
    if (handler.badColors > 0)
        qCWarning(lcTables).noquote() << "XlsxStyles::load" << handler.badColors << "malformed colours in" << partName
                                      << "are left out";
    return true;
}

int XlsxStyles::paletteColor(int index)
{
    static const int palette[kPaletteSize] = {
        0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00, 0x0000FF, 0xFFFF00, 0xFF00FF, 0x00FFFF,
        0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00, 0x0000FF, 0xFFFF00, 0xFF00FF, 0x00FFFF,
        0x800000, 0x008000, 0x000080, 0x808000, 0x800080, 0x008080, 0xC0C0C0, 0x808080,
        0x9999FF, 0x993366, 0xFFFFCC, 0xCCFFFF, 0x660066, 0xFF8080, 0x0066CC, 0xCCCCFF,
        0x000080, 0xFF00FF, 0xFFFF00, 0x00FFFF, 0x800080, 0x800000, 0x008080, 0x0000FF,
        0x00CCFF, 0xCCFFFF, 0xCCFFCC, 0xFFFF99, 0x99CCFF, 0xFF99CC, 0xCC99FF, 0xFFCC99,
        0x3366FF, 0x33CCCC, 0x99CC00, 0xFFCC00, 0xFF9900, 0xFF6600, 0x666699, 0x969696,
        0x003366, 0x339966, 0x003300, 0x333300, 0x993300, 0x993366, 0x333399, 0x333333};
    return index >= 0 && index < kPaletteSize ? palette[index] : -1;
}

const XlsxCellStyle& XlsxStyles::style(int xf) const
{
    if (xf >= 0 && xf < m_styles.size())
        return m_styles.at(xf);
    return m_default;
}
