#pragma once

#include <QString>

class XlsxZipArchive;

// The colour scheme of a workbook's theme, which cell formats may name by number instead
// of giving an RGB value. Colours are 0xRRGGBB. Until a theme part is loaded, and for every
// colour a part leaves out, the default Office theme's colours stand.
class XlsxTheme
{
public:
    // The scheme's colours in the order the theme part lists them.
    enum Slot { Dark1, Light1, Dark2, Light2, Accent1, Accent2, Accent3, Accent4, Accent5, Accent6,
                Hyperlink, FollowedHyperlink, SlotCount };

    XlsxTheme();

    // Reads the colour scheme of a theme part. A part that is missing, too large or broken
    // leaves the default colours and returns false; the workbook reads on regardless.
    bool load(const XlsxZipArchive& zip, const QString& partName);

    // The colour a cell format's theme="n" stands for: cell formats count the first two
    // pairs light before dark (0 light 1, 1 dark 1, 2 light 2, 3 dark 2). -1 out of range.
    int color(int index) const;

    // A colour lightened (tint > 0) or darkened (tint < 0) by moving its lightness in HLS
    // space towards white or black by that fraction; tint is clamped to [-1, 1].
    static int tinted(int rgb, double tint);

    // Theme parts hold a few kilobytes; one declaring more than this is not read.
    static constexpr qint64 kMaxThemeBytes = 16 << 20;

private:
    int m_colors[SlotCount];
};
