#include "XlsxTheme.h"

#include "VantorLogging.h"
#include "XlsxStyles.h"
#include "XlsxXmlReader.h"
#include "XlsxZipArchive.h"

#include <QtGlobal>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

const int kDefaultColors[XlsxTheme::SlotCount] = {0x000000, 0xFFFFFF, 0x1F497D, 0xEEECE1, 0x4F81BD, 0xC0504D,
                                                  0x9BBB59, 0x8064A2, 0x4BACC6, 0xF79646, 0x0000FF, 0x800080};
const char* const kSlotNames[XlsxTheme::SlotCount] = {"dk1", "lt1", "dk2", "lt2", "accent1", "accent2",
                                                      "accent3", "accent4", "accent5", "accent6", "hlink", "folHlink"};

class ThemeHandler : public XlsxXmlHandler
{
public:
    int colors[XlsxTheme::SlotCount];
    bool done = false; // the colour scheme has been read; the rest of the part is not needed

    ThemeHandler() { std::fill(std::begin(colors), std::end(colors), -1); }

    void startElement(const char* name, const char** atts) override
    {
        if (!m_inScheme) {
            m_inScheme = std::strcmp(name, "clrScheme") == 0;
            return;
        }
        if (m_slot < 0) {
            for (int i = 0; i < XlsxTheme::SlotCount; ++i) {
                if (std::strcmp(name, kSlotNames[i]) == 0)
                    m_slot = i;
            }
            return;
        }
        if (colors[m_slot] >= 0)
            return;
        if (std::strcmp(name, "srgbClr") == 0)
            colors[m_slot] = XlsxStyles::parseRgb(XlsxXmlReader::attribute(atts, "val"));
        else if (std::strcmp(name, "sysClr") == 0)
            colors[m_slot] = XlsxStyles::parseRgb(XlsxXmlReader::attribute(atts, "lastClr"));
    }

    void endElement(const char* name) override
    {
        if (!m_inScheme)
            return;
        if (std::strcmp(name, "clrScheme") == 0) {
            done = true;
            error = QStringLiteral("colour scheme read"); // stops the parser
        } else if (m_slot >= 0 && std::strcmp(name, kSlotNames[m_slot]) == 0) {
            m_slot = -1;
        }
    }

    void characters(const char*, int) override {}

private:
    bool m_inScheme = false;
    int m_slot = -1;
};

double hueToChannel(double p, double q, double h)
{
    if (h < 0)
        h += 1;
    if (h > 1)
        h -= 1;
    if (h < 1.0 / 6)
        return p + (q - p) * 6 * h;
    if (h < 0.5)
        return q;
    if (h < 2.0 / 3)
        return p + (q - p) * (2.0 / 3 - h) * 6;
    return p;
}

} // namespace

XlsxTheme::XlsxTheme()
{
    std::copy(std::begin(kDefaultColors), std::end(kDefaultColors), std::begin(m_colors));
}

bool XlsxTheme::load(const XlsxZipArchive& zip, const QString& partName)
{
    if (!zip.contains(partName)) {
        qCWarning(lcTables).noquote() << "XlsxTheme::load" << "no theme part" << partName << "- default colours used";
        return false;
    }
    if (zip.partSize(partName) > kMaxThemeBytes) {
        qCWarning(lcTables).noquote() << "XlsxTheme::load" << "theme part" << partName << "exceeds" << kMaxThemeBytes
                                      << "bytes - default colours used";
        return false;
    }
    ThemeHandler handler;
    QString err;
    if (!XlsxXmlReader::parsePart(zip, partName, handler, err) && !handler.done) {
        qCWarning(lcTables).noquote() << "XlsxTheme::load" << "unreadable theme part" << partName << err
                                      << "- default colours used";
        return false;
    }
    for (int i = 0; i < SlotCount; ++i) {
        if (handler.colors[i] >= 0)
            m_colors[i] = handler.colors[i];
    }
    return true;
}

int XlsxTheme::color(int index) const
{
    static const Slot order[SlotCount] = {Light1, Dark1, Light2, Dark2, Accent1, Accent2, Accent3, Accent4,
                                          Accent5, Accent6, Hyperlink, FollowedHyperlink};
    return index >= 0 && index < SlotCount ? m_colors[order[index]] : -1;
}

int XlsxTheme::tinted(int rgb, double tint)
{
    if (rgb < 0 || tint == 0 || std::isnan(tint))
        return rgb;
    tint = qBound(-1.0, tint, 1.0);
    const double r = ((rgb >> 16) & 0xFF) / 255.0;
    const double g = ((rgb >> 8) & 0xFF) / 255.0;
    const double b = (rgb & 0xFF) / 255.0;
    const double max = std::max({r, g, b});
    const double min = std::min({r, g, b});
    double l = (max + min) / 2;
    double h = 0;
    double s = 0;
    if (max > min) {
        const double d = max - min;
        s = l > 0.5 ? d / (2 - max - min) : d / (max + min);
        if (max == r)
            h = (g - b) / d + (g < b ? 6 : 0);
        else if (max == g)
            h = (b - r) / d + 2;
        else
            h = (r - g) / d + 4;
        h /= 6;
    }
    l = tint < 0 ? l * (1 + tint) : l * (1 - tint) + tint;
    double channels[3] = {l, l, l};
    if (s > 0) {
        const double q = l < 0.5 ? l * (1 + s) : l + s - l * s;
        const double p = 2 * l - q;
        channels[0] = hueToChannel(p, q, h + 1.0 / 3);
        channels[1] = hueToChannel(p, q, h);
        channels[2] = hueToChannel(p, q, h - 1.0 / 3);
    }
    int out = 0;
    for (double c : channels)
        out = out * 256 + int(qBound(0L, std::lround(c * 255), 255L));
    return out;
}
