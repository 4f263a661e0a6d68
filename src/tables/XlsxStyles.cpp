#include "XlsxStyles.h"

#include "XlsxXmlReader.h"

#include <QHash>

#include <cstdlib>
#include <cstring>

namespace {

constexpr int kMaxStyles = 1 << 20;

struct FontInfo {
    bool bold = false;
    double size = 0;
};

struct XfInfo {
    int numFmtId = 0;
    int fontId = 0;
};

class StylesHandler : public XlsxXmlHandler
{
public:
    QHash<int, QString> numFmts;
    QVector<FontInfo> fonts;
    QVector<XfInfo> xfs;

    void startElement(const char* name, const char** atts) override
    {
        if (std::strcmp(name, "numFmt") == 0 && m_inNumFmts) {
            const char* id = XlsxXmlReader::attribute(atts, "numFmtId");
            const char* code = XlsxXmlReader::attribute(atts, "formatCode");
            if (id && code)
                numFmts.insert(std::atoi(id), QString::fromUtf8(code));
        } else if (std::strcmp(name, "numFmts") == 0) {
            m_inNumFmts = true;
        } else if (std::strcmp(name, "fonts") == 0) {
            m_inFonts = true;
        } else if (std::strcmp(name, "font") == 0 && m_inFonts) {
            fonts.append(FontInfo());
            m_inFont = true;
        } else if (m_inFont && std::strcmp(name, "b") == 0) {
            const char* val = XlsxXmlReader::attribute(atts, "val");
            fonts.last().bold = !val || (std::strcmp(val, "0") != 0 && std::strcmp(val, "false") != 0);
        } else if (m_inFont && std::strcmp(name, "sz") == 0) {
            if (const char* val = XlsxXmlReader::attribute(atts, "val"))
                fonts.last().size = std::atof(val);
        } else if (std::strcmp(name, "cellXfs") == 0) {
            m_inCellXfs = true;
        } else if (std::strcmp(name, "xf") == 0 && m_inCellXfs) {
            if (xfs.size() >= kMaxStyles) {
                error = QStringLiteral("too many styles");
                return;
            }
            XfInfo xf;
            if (const char* id = XlsxXmlReader::attribute(atts, "numFmtId"))
                xf.numFmtId = std::atoi(id);
            if (const char* id = XlsxXmlReader::attribute(atts, "fontId"))
                xf.fontId = std::atoi(id);
            xfs.append(xf);
        }
        if (fonts.size() > kMaxStyles)
            error = QStringLiteral("too many fonts");
    }

    void endElement(const char* name) override
    {
        if (std::strcmp(name, "numFmts") == 0)
            m_inNumFmts = false;
        else if (std::strcmp(name, "fonts") == 0)
            m_inFonts = false;
        else if (std::strcmp(name, "font") == 0)
            m_inFont = false;
        else if (std::strcmp(name, "cellXfs") == 0)
            m_inCellXfs = false;
    }

    void characters(const char*, int) override {}

private:
    bool m_inNumFmts = false;
    bool m_inFonts = false;
    bool m_inFont = false;
    bool m_inCellXfs = false;
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

bool XlsxStyles::load(const XlsxZipArchive& zip, const QString& partName, QString& err)
{
    StylesHandler handler;
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
        if (xf.fontId >= 0 && xf.fontId < handler.fonts.size()) {
            s.bold = handler.fonts.at(xf.fontId).bold;
            s.fontSize = handler.fonts.at(xf.fontId).size;
        }
        m_styles.append(s);
    }
    return true;
}

const XlsxCellStyle& XlsxStyles::style(int xf) const
{
    if (xf >= 0 && xf < m_styles.size())
        return m_styles.at(xf);
    return m_default;
}
