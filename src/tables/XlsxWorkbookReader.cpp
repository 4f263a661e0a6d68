#include "XlsxWorkbookReader.h"

#include "VantorLogging.h"
#include "XlsxCellPipe.h"
#include "XlsxErrors.h"
#include "XlsxFormulaShift.h"
#include "XlsxSheetLayout.h"
#include "XlsxTheme.h"
#include "XlsxXmlReader.h"

#include <QDateTime>
#include <QDir>
#include <QHash>
#include <QThread>
#include <QUrl>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <vector>

namespace {

// A cell's text from its UTF-8 bytes. QString::fromUtf8 drops a byte-order mark at the
// start, which in a cell is text like any other.
QString cellText(const char* data, int size)
{
    QString text;
    while (size >= 3 && std::memcmp(data, "\xEF\xBB\xBF", 3) == 0) {
        text += QChar(0xFEFF);
        data += 3;
        size -= 3;
    }
    return text.isEmpty() ? QString::fromUtf8(data, size) : text + QString::fromUtf8(data, size);
}

struct Relationship {
    QString type;
    QString target;
};

class RelsHandler : public XlsxXmlHandler
{
public:
    QHash<QString, Relationship> byId;
    QVector<Relationship> all;
    QHash<QString, QString> externalTargets; // by id: addresses outside the package (hyperlinks)

    void startElement(const char* name, const char** atts) override
    {
        if (std::strcmp(name, "Relationship") != 0)
            return;
        const char* id = XlsxXmlReader::attribute(atts, "Id");
        const char* type = XlsxXmlReader::attribute(atts, "Type");
        const char* target = XlsxXmlReader::attribute(atts, "Target");
        const char* mode = XlsxXmlReader::attribute(atts, "TargetMode");
        if (!type || !target)
            return;
        if (mode && std::strcmp(mode, "External") == 0) {
            if (id && externalTargets.size() < 100000)
                externalTargets.insert(QString::fromUtf8(id), QString::fromUtf8(target));
            return;
        }
        Relationship rel{QString::fromUtf8(type), QString::fromUtf8(target)};
        if (all.size() < 100000)
            all.append(rel);
        if (id)
            byId.insert(QString::fromUtf8(id), rel);
    }
    void endElement(const char*) override {}
    void characters(const char*, int) override {}
};

class WorkbookHandler : public XlsxXmlHandler
{
public:
    struct Entry {
        QString name;
        QString relId;
        XlsxWorkbookReader::SheetInfo::Visibility visibility = XlsxWorkbookReader::SheetInfo::Visible;
    };
    struct Name {
        QString name;
        std::string formula;
        int localSheet = -1; // -1: none given; -2: given but not a sheet number
        bool hidden = false;
    };
    QVector<Entry> sheets;
    std::vector<Name> names;
    int namesLeftOut = 0;
    bool date1904 = false;
    int activeTab = 0;
    int firstSheet = 0;

    void startElement(const char* name, const char** atts) override
    {
        ++m_depth;
        if (std::strcmp(name, "sheet") == 0) {
            if (sheets.size() >= 100000) {
                error = XlsxErrors::tooManyCells();
                return;
            }
            const char* n = XlsxXmlReader::attribute(atts, "name");
            const char* id = XlsxXmlReader::attribute(atts, "id");
            const char* state = XlsxXmlReader::attribute(atts, "state");
            Entry entry{n ? QString::fromUtf8(n) : QString(), id ? QString::fromUtf8(id) : QString()};
            if (state && std::strcmp(state, "hidden") == 0)
                entry.visibility = XlsxWorkbookReader::SheetInfo::Hidden;
            else if (state && std::strcmp(state, "veryHidden") == 0)
                entry.visibility = XlsxWorkbookReader::SheetInfo::VeryHidden;
            sheets.append(entry);
        } else if (std::strcmp(name, "workbookPr") == 0) {
            // Only the workbook's own properties count: later versions of Excel add
            // properties of the same name inside extensions, without the date system.
            const char* v = m_depth == 2 ? XlsxXmlReader::attribute(atts, "date1904") : nullptr;
            if (v)
                date1904 = std::strcmp(v, "1") == 0 || std::strcmp(v, "true") == 0;
        } else if (std::strcmp(name, "workbookView") == 0) {
            // The first view is the one the workbook opens in.
            if (m_viewSeen)
                return;
            m_viewSeen = true;
            if (const char* v = XlsxXmlReader::attribute(atts, "activeTab"))
                activeTab = std::atoi(v);
            if (const char* v = XlsxXmlReader::attribute(atts, "firstSheet"))
                firstSheet = std::atoi(v);
        } else if (m_depth == 3 && std::strcmp(name, "definedName") == 0) {
            startName(atts);
        }
    }
    void endElement(const char*) override
    {
        if (m_inName && m_depth == 3)
            m_inName = false;
        --m_depth;
    }
    void characters(const char* text, int len) override
    {
        if (!m_inName)
            return;
        std::string& formula = names.back().formula;
        if (formula.size() + size_t(len) > size_t(XlsxWorkbookReader::kMaxDefinedNameBytes)) {
            names.pop_back();
            ++namesLeftOut;
            m_inName = false;
            return;
        }
        formula.append(text, size_t(len));
    }

private:
    void startName(const char** atts)
    {
        const char* n = XlsxXmlReader::attribute(atts, "name");
        if (!n || !*n || names.size() >= size_t(XlsxWorkbookReader::kMaxDefinedNames)) {
            ++namesLeftOut;
            return;
        }
        Name entry;
        entry.name = QString::fromUtf8(n);
        if (const char* local = XlsxXmlReader::attribute(atts, "localSheetId")) {
            bool ok = false;
            entry.localSheet = QByteArray(local).toInt(&ok);
            if (!ok || entry.localSheet < 0)
                entry.localSheet = -2;
        }
        if (const char* hidden = XlsxXmlReader::attribute(atts, "hidden"))
            entry.hidden = std::strcmp(hidden, "1") == 0 || std::strcmp(hidden, "true") == 0;
        names.push_back(std::move(entry));
        m_inName = true;
    }

    int m_depth = 0;
    bool m_viewSeen = false;
    bool m_inName = false;
};

class SharedStringsHandler : public XlsxXmlHandler
{
public:
    explicit SharedStringsHandler(QVector<QString>& out)
        : m_out(out)
    {
    }

    void startElement(const char* name, const char**) override
    {
        if (std::strcmp(name, "si") == 0) {
            m_inItem = true;
            m_text.clear();
        } else if (std::strcmp(name, "t") == 0) {
            m_inText = m_inItem && m_phonetic == 0;
        } else if (std::strcmp(name, "rPh") == 0) {
            ++m_phonetic;
        } else if (m_inItem && m_phonetic == 0 && std::strcmp(name, "r") == 0) {
            m_richItem = true;
        }
    }

    void endElement(const char* name) override
    {
        if (std::strcmp(name, "si") == 0) {
            if (m_richItem)
                ++richTexts;
            m_richItem = false;
            QString text = cellText(m_text.data(), int(m_text.size()));
            if (std::memchr(m_text.data(), '_', m_text.size()))
                text = XlsxWorkbookReader::decodeEscapes(text);
            m_out.append(text);
            m_inItem = false;
        } else if (std::strcmp(name, "t") == 0) {
            m_inText = false;
        } else if (std::strcmp(name, "rPh") == 0) {
            --m_phonetic;
        }
    }

    void characters(const char* text, int len) override
    {
        if (m_inText)
            m_text.append(text, size_t(len));
    }

    int richTexts = 0; // entries made of runs of differently formatted text

private:
    QVector<QString>& m_out;
    std::string m_text;
    bool m_richItem = false;
    bool m_inItem = false;
    bool m_inText = false;
    int m_phonetic = 0;
};

// atoi() for the short unsigned numbers attributes hold, without its locale handling.
inline int toInt(const char* s)
{
    int value = 0;
    int i = 0;
    for (; i < 9 && s[i] >= '0' && s[i] <= '9'; ++i)
        value = value * 10 + (s[i] - '0');
    if (i > 0 && (s[i] < '0' || s[i] > '9'))
        return value;
    return std::atoi(s);
}

// "B12" to column 2, row 12; false when the reference is malformed.
bool parseCellRef(const char* ref, int& row, int& col)
{
    int c = 0;
    const char* p = ref;
    while ((*p >= 'A' && *p <= 'Z') || (*p >= 'a' && *p <= 'z')) {
        c = c * 26 + ((*p | 0x20) - 'a' + 1);
        if (c > XlsxWorkbookReader::kMaxColumns * 26)
            c = XlsxWorkbookReader::kMaxColumns + 1;
        ++p;
    }
    if (c == 0 && p == ref)
        c = 0;
    long r = 0;
    const char* digits = p;
    while (*p >= '0' && *p <= '9') {
        r = r * 10 + (*p - '0');
        if (r > XlsxWorkbookReader::kMaxRows)
            r = XlsxWorkbookReader::kMaxRows + 1;
        ++p;
    }
    if (*p != '\0' || p == digits || c == 0)
        return false;
    row = int(r);
    col = c;
    return true;
}

// Turns raw cells into the cells a visitor receives, converting their text.
class CellDelivery : public XlsxRawCellSink
{
public:
    CellDelivery(XlsxCellVisitor& visitor, const QVector<QString>& sharedStrings)
        : m_visitor(visitor)
        , m_shared(sharedStrings)
    {
    }

    void cell(const XlsxRawCell& r) override
    {
        m_cell.row = r.row;
        m_cell.col = r.col;
        m_cell.style = r.style;
        m_cell.styleFromColumn = r.styleFromColumn;
        m_cell.hasFormula = r.hasFormula;
        m_cell.arrayLastRow = r.arrayLastRow;
        m_cell.arrayLastCol = r.arrayLastCol;
        if (r.hasFormula)
            m_cell.formula = QString::fromUtf8(r.formula, r.formulaLen);
        else
            m_cell.formula.clear();
        m_cell.text = QString();
        m_cell.raw = "";
        m_cell.rawLen = 0;
        m_cell.isoDate = false;
        switch (r.kind) {
        // Text held in the cell itself (a formula's result, or any text from writers that
        // use no shared strings) keeps control characters escaped, as an inline string does.
        case XlsxRawCell::Text:
        case XlsxRawCell::Inline:
            m_cell.type = XlsxCell::String;
            m_cell.text = cellText(r.value, r.valueLen);
            if (std::memchr(r.value, '_', size_t(r.valueLen)))
                m_cell.text = XlsxWorkbookReader::decodeEscapes(m_cell.text);
            break;
        case XlsxRawCell::IsoDate:
            m_cell.type = XlsxCell::String;
            m_cell.text = cellText(r.value, r.valueLen);
            m_cell.isoDate = true;
            break;
        case XlsxRawCell::Shared:
            m_cell.type = XlsxCell::String;
            if (r.sharedIndex >= 0 && r.sharedIndex < m_shared.size())
                m_cell.text = m_shared.at(r.sharedIndex);
            break;
        case XlsxRawCell::Error:
            m_cell.type = XlsxCell::Error;
            m_cell.text = cellText(r.value, r.valueLen);
            break;
        case XlsxRawCell::Boolean:
            m_cell.type = XlsxCell::Boolean;
            m_cell.raw = r.value;
            m_cell.rawLen = r.valueLen;
            break;
        case XlsxRawCell::Number:
            m_cell.type = XlsxCell::Number;
            m_cell.raw = r.value;
            m_cell.rawLen = r.valueLen;
            break;
        case XlsxRawCell::Empty:
            m_cell.type = XlsxCell::Empty;
            break;
        }
        m_visitor.cell(m_cell);
    }

    void columnWidth(int firstCol, int lastCol, double width) override
    {
        m_visitor.columnWidth(firstCol, lastCol, width);
    }

private:
    XlsxCellVisitor& m_visitor;
    const QVector<QString>& m_shared;
    XlsxCell m_cell;
};

class SheetHandler : public XlsxXmlHandler
{
public:
    SheetHandler(XlsxRawCellSink& sink, int sharedCount, XlsxSheetLayout* layout)
        : m_sink(sink)
        , m_sharedCount(sharedCount)
        , m_layout(layout)
    {
    }

    void startElement(const char* name, const char** atts) override
    {
        if (m_layout && !m_inSheetData) {
            if (std::strcmp(name, "sheetData") == 0) {
                m_inSheetData = true;
            } else if (std::strcmp(name, "oddHeader") == 0 || std::strcmp(name, "oddFooter") == 0) {
                m_pageText.clear();
                m_capture = &m_pageText;
            } else {
                m_layout->noteElement(name, atts);
            }
        }
        switch (name[0]) {
        case 'c':
            if (name[1] == '\0') {
                startCell(atts);
                return;
            }
            if (std::strcmp(name, "col") == 0)
                startColumn(atts);
            return;
        case 'v':
            if (name[1] == '\0' && m_inCell) {
                m_capture = &m_value;
                m_value.clear();
            }
            return;
        case 'f':
            if (name[1] == '\0' && m_inCell) {
                m_cell.hasFormula = true;
                m_capture = &m_formula;
                m_formula.clear();
                m_sharedFormula = -1;
                if (const char* t = XlsxXmlReader::attribute(atts, "t")) {
                    if (std::strcmp(t, "shared") == 0) {
                        const char* si = XlsxXmlReader::attribute(atts, "si");
                        m_sharedFormula = si && *si >= '0' && *si <= '9' ? toInt(si) : -1;
                    } else if (std::strcmp(t, "array") == 0) {
                        startArray(XlsxXmlReader::attribute(atts, "ref"));
                    }
                }
            }
            return;
        case 't':
            if (name[1] == '\0' && m_inInline && m_phonetic == 0)
                m_capture = &m_inlineText;
            return;
        case 'i':
            if (std::strcmp(name, "is") == 0 && m_inCell) {
                m_inInline = true;
                m_inlineText.clear();
                m_hasInline = true;
            }
            return;
        case 'r':
            if (std::strcmp(name, "row") == 0) {
                const char* r = XlsxXmlReader::attribute(atts, "r");
                int row = r ? toInt(r) : m_row + 1;
                if (row < 1 || row > XlsxWorkbookReader::kMaxRows) {
                    error = XlsxErrors::tooManyCells();
                    return;
                }
                m_row = row;
                m_col = 0;
                if (m_layout)
                    m_layout->addRow(row, atts);
            } else if (std::strcmp(name, "rPh") == 0) {
                ++m_phonetic;
            }
            return;
        case 'm':
            if (m_layout && std::strcmp(name, "mergeCell") == 0)
                m_layout->addMerge(atts);
            return;
        case 'h':
            if (m_layout && std::strcmp(name, "hyperlink") == 0)
                m_layout->addHyperlink(atts);
            return;
        case 'p':
            if (m_layout && std::strcmp(name, "pane") == 0)
                m_layout->setPane(atts);
            return;
        default:
            return;
        }
    }

    void endElement(const char* name) override
    {
        switch (name[0]) {
        case 'c':
            if (name[1] == '\0' && m_inCell)
                endCell();
            return;
        case 's':
            if (m_inSheetData && std::strcmp(name, "sheetData") == 0)
                m_inSheetData = false;
            return;
        case 'o':
            if (m_capture == &m_pageText && (std::strcmp(name, "oddHeader") == 0 || std::strcmp(name, "oddFooter") == 0)) {
                m_capture = nullptr;
                const QString text = QString::fromUtf8(m_pageText.data(), int(m_pageText.size()));
                m_layout->setHeaderFooter(name[3] == 'F', text);
            }
            return;
        case 'v':
        case 'f':
        case 't':
            if (name[1] == '\0')
                m_capture = nullptr;
            return;
        case 'i':
            if (std::strcmp(name, "is") == 0)
                m_inInline = false;
            return;
        case 'r':
            if (std::strcmp(name, "rPh") == 0)
                --m_phonetic;
            return;
        default:
            return;
        }
    }

    void characters(const char* text, int len) override
    {
        if (m_capture) {
            if (m_capture->size() + size_t(len) > kMaxCellBytes) {
                error = XlsxErrors::tooLarge();
                return;
            }
            m_capture->append(text, size_t(len));
        }
    }

private:
    static constexpr size_t kMaxCellBytes = 8u << 20;

    void startColumn(const char** atts)
    {
        const char* min = XlsxXmlReader::attribute(atts, "min");
        const char* max = XlsxXmlReader::attribute(atts, "max");
        if (!min || !max)
            return;
        const int first = qBound(1, std::atoi(min), XlsxWorkbookReader::kMaxColumns);
        const int last = qBound(first, std::atoi(max), XlsxWorkbookReader::kMaxColumns);
        if (const char* style = XlsxXmlReader::attribute(atts, "style")) {
            const int s = std::atoi(style);
            if (m_columnStyles.size() < last)
                m_columnStyles.resize(last);
            for (int c = first; c <= last; ++c)
                m_columnStyles[c - 1] = s;
        }
        if (const char* width = XlsxXmlReader::attribute(atts, "width"))
            m_sink.columnWidth(first, last, XlsxWorkbookReader::toDouble(width, int(std::strlen(width))));
        if (m_layout)
            m_layout->addColumn(first, last, atts);
    }

    // An array formula fills the range its cell starts; a range that starts elsewhere or
    // makes no sense leaves the formula to its own cell.
    Q_NEVER_INLINE void startArray(const char* ref)
    {
        m_cell.arrayLastRow = m_cell.row;
        m_cell.arrayLastCol = m_cell.col;
        XlsxSheetLayout::Range range;
        if (ref && XlsxSheetLayout::parseRange(ref, range) && range.firstRow == m_cell.row && range.firstCol == m_cell.col) {
            m_cell.arrayLastRow = range.lastRow;
            m_cell.arrayLastCol = range.lastCol;
        }
    }

    void startCell(const char** atts)
    {
        m_inCell = true;
        m_cell.hasFormula = false;
        m_cell.arrayLastRow = 0;
        m_cell.arrayLastCol = 0;
        m_sharedFormula = -1;
        m_cell.style = -1;
        m_cell.styleFromColumn = false;
        m_value.clear();
        m_formula.clear();
        m_inlineText.clear();
        m_hasInline = false;
        m_typeChar = 'n';
        m_typeInline = false;
        bool hasStyle = false;
        int row = m_row;
        int col = m_col + 1;
        for (const char** a = atts; *a; a += 2) {
            const char* attr = XlsxXmlReader::localName(a[0]);
            if (attr[1] != '\0')
                continue;
            switch (attr[0]) {
            case 'r':
                if (!parseCellRef(a[1], row, col)) {
                    row = m_row;
                    col = m_col + 1;
                }
                break;
            case 't':
                m_typeChar = a[1][0];
                m_typeInline = std::strcmp(a[1], "inlineStr") == 0;
                if (std::strcmp(a[1], "str") == 0)
                    m_typeChar = 'S';
                break;
            case 's':
                m_cell.style = toInt(a[1]);
                hasStyle = true;
                break;
            default:
                break;
            }
        }
        if (row < 1)
            row = 1;
        if (col > XlsxWorkbookReader::kMaxColumns || row > XlsxWorkbookReader::kMaxRows) {
            error = XlsxErrors::tooManyCells();
            return;
        }
        m_row = row;
        m_col = col;
        m_cell.row = row;
        m_cell.col = col;
        if (!hasStyle && col <= m_columnStyles.size() && m_columnStyles.at(col - 1) > 0) {
            m_cell.style = m_columnStyles.at(col - 1);
            m_cell.styleFromColumn = true;
        }
    }

    void endCell()
    {
        m_inCell = false;
        m_capture = nullptr;
        m_cell.kind = XlsxRawCell::Empty;
        m_cell.sharedIndex = -1;
        m_cell.value = "";
        m_cell.valueLen = 0;
        if (m_sharedFormula >= 0)
            shareFormula();
        m_cell.formula = m_formula.c_str();
        m_cell.formulaLen = int(m_formula.size());
        if (m_typeInline || (m_hasInline && m_value.empty())) {
            m_cell.kind = XlsxRawCell::Inline;
            m_cell.value = m_inlineText.c_str();
            m_cell.valueLen = int(m_inlineText.size());
        } else if (!m_value.empty()) {
            m_cell.value = m_value.c_str();
            m_cell.valueLen = int(m_value.size());
            switch (m_typeChar) {
            case 's': {
                m_cell.kind = XlsxRawCell::Shared;
                const long index = std::strtol(m_value.c_str(), nullptr, 10);
                if (index >= 0 && index < m_sharedCount)
                    m_cell.sharedIndex = int(index);
                break;
            }
            case 'b':
                m_cell.kind = XlsxRawCell::Boolean;
                break;
            case 'e':
                m_cell.kind = XlsxRawCell::Error;
                break;
            case 'S': // string result of a formula
                m_cell.kind = XlsxRawCell::Text;
                break;
            case 'd':
                m_cell.kind = XlsxRawCell::IsoDate;
                break;
            default:
                m_cell.kind = XlsxRawCell::Number;
                break;
            }
        }
        m_sink.cell(m_cell);
    }

    // A formula filled over a range is written out at its first cell only; the others
    // name it by number and get its text moved by their distance from that cell. (Kept
    // out of line: the cell ends that need it are few.)
    Q_NEVER_INLINE void shareFormula()
    {
        if (!m_formula.empty()) {
            if (m_sharedFormulas.size() < kMaxSharedFormulas && m_sharedFormulaBytes + m_formula.size() <= kMaxSharedFormulaBytes) {
                SharedFormula& f = m_sharedFormulas.emplace(m_sharedFormula, SharedFormula()).first->second;
                m_sharedFormulaBytes += m_formula.size();
                f.text = m_formula;
                f.row = m_cell.row;
                f.col = m_cell.col;
            }
            return;
        }
        const auto it = m_sharedFormulas.find(m_sharedFormula);
        if (it == m_sharedFormulas.end())
            return;
        const QByteArray moved = XlsxFormulaShift::shifted(it->second.text.data(), int(it->second.text.size()),
                                                           m_cell.row - it->second.row, m_cell.col - it->second.col);
        if (size_t(moved.size()) <= kMaxCellBytes)
            m_formula.assign(moved.constData(), size_t(moved.size()));
    }

    struct SharedFormula {
        std::string text;
        int row = 0;
        int col = 0;
    };
    static constexpr size_t kMaxSharedFormulas = 1u << 20;
    static constexpr size_t kMaxSharedFormulaBytes = 64u << 20;

    XlsxRawCellSink& m_sink;
    const int m_sharedCount;
    XlsxSheetLayout* const m_layout;
    bool m_inSheetData = false;
    XlsxRawCell m_cell;
    QVector<int> m_columnStyles;
    std::string m_value;
    std::string m_formula;
    std::string m_inlineText;
    std::string* m_capture = nullptr;
    std::string m_pageText; // a header or footer of the printed pages
    std::unordered_map<int, SharedFormula> m_sharedFormulas;
    size_t m_sharedFormulaBytes = 0;
    int m_sharedFormula = -1;
    int m_row = 0;
    int m_col = 0;
    int m_phonetic = 0;
    char m_typeChar = 'n';
    bool m_typeInline = false;
    bool m_inCell = false;
    bool m_inInline = false;
    bool m_hasInline = false;
};

// Resolves a relationship target against the folder of the part that names it. Targets
// are URIs, so "%20" stands for a space; some writers separate folders with "\\".
QString resolveTarget(const QString& baseDir, const QString& target)
{
    QString path = target.contains(QLatin1Char('%')) ? QUrl::fromPercentEncoding(target.toUtf8()) : target;
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (path.startsWith(QLatin1Char('/')))
        return QDir::cleanPath(path.mid(1));
    if (baseDir.isEmpty())
        return QDir::cleanPath(path);
    return QDir::cleanPath(baseDir + QLatin1Char('/') + path);
}

// The part a target names; a package whose part names themselves hold "%" is read too.
QString resolvePart(const XlsxZipArchive& zip, const QString& baseDir, const QString& target)
{
    const QString part = resolveTarget(baseDir, target);
    if (!target.contains(QLatin1Char('%')) || zip.contains(part))
        return part;
    QString raw = target;
    raw.replace(QLatin1Char('%'), QLatin1String("%25"));
    const QString literal = resolveTarget(baseDir, raw);
    return zip.contains(literal) ? literal : part;
}

bool typeIs(const QString& type, const char* kind)
{
    return type.endsWith(QLatin1Char('/') + QLatin1String(kind));
}

} // namespace

bool XlsxWorkbookReader::open(const QString& fileName, QString& err)
{
    if (!m_zip.open(fileName, err))
        return false;

    QString workbookPart = QStringLiteral("xl/workbook.xml");
    if (m_zip.contains(QStringLiteral("_rels/.rels"))) {
        RelsHandler rels;
        if (!XlsxXmlReader::parsePart(m_zip, QStringLiteral("_rels/.rels"), rels, err))
            return false;
        for (const Relationship& rel : qAsConst(rels.all)) {
            if (typeIs(rel.type, "officeDocument")) {
                workbookPart = resolvePart(m_zip, QString(), rel.target);
                break;
            }
        }
    }
    if (!m_zip.contains(workbookPart)) {
        qCWarning(lcTables).noquote() << "XlsxWorkbookReader::open" << "no workbook part" << workbookPart;
        err = XlsxErrors::missingPart();
        return false;
    }
    WorkbookHandler workbook;
    if (!XlsxXmlReader::parsePart(m_zip, workbookPart, workbook, err))
        return false;
    m_1904 = workbook.date1904;

    const int slash = workbookPart.lastIndexOf(QLatin1Char('/'));
    const QString baseDir = slash >= 0 ? workbookPart.left(slash) : QString();
    const QString relsPart = (baseDir.isEmpty() ? QString() : baseDir + QLatin1Char('/')) + QLatin1String("_rels/")
        + workbookPart.mid(slash + 1) + QLatin1String(".rels");
    RelsHandler rels;
    if (m_zip.contains(relsPart)) {
        if (!XlsxXmlReader::parsePart(m_zip, relsPart, rels, err))
            return false;
    } else {
        qCWarning(lcTables).noquote() << "XlsxWorkbookReader::open" << "no relationships part" << relsPart;
    }
    QString stylesPart;
    QString themePart;
    for (const Relationship& rel : qAsConst(rels.all)) {
        if (typeIs(rel.type, "sharedStrings") && m_sharedStringsPart.isEmpty())
            m_sharedStringsPart = resolvePart(m_zip, baseDir, rel.target);
        else if (typeIs(rel.type, "styles") && stylesPart.isEmpty())
            stylesPart = resolvePart(m_zip, baseDir, rel.target);
        else if (typeIs(rel.type, "theme") && themePart.isEmpty())
            themePart = resolvePart(m_zip, baseDir, rel.target);
    }

    m_sheets.clear();
    for (const WorkbookHandler::Entry& entry : qAsConst(workbook.sheets)) {
        SheetInfo info;
        info.name = entry.name;
        info.visibility = entry.visibility;
        auto rel = rels.byId.constFind(entry.relId);
        if (rel != rels.byId.constEnd()) {
            info.chart = typeIs(rel->type, "chartsheet") || typeIs(rel->type, "dialogsheet");
            info.part = resolvePart(m_zip, baseDir, rel->target);
        }
        m_sheets.append(info);
    }
    m_names.clear();
    int namesLeftOut = workbook.namesLeftOut;
    for (const WorkbookHandler::Name& n : workbook.names) {
        if (n.localSheet == -2 || n.localSheet >= m_sheets.size()) {
            ++namesLeftOut; // local to a sheet the workbook does not have
            continue;
        }
        DefinedName name;
        name.name = n.name;
        name.formula = QString::fromUtf8(n.formula.data(), int(n.formula.size()));
        if (name.formula.startsWith(QLatin1Char('=')))
            name.formula.remove(0, 1);
        name.sheet = n.localSheet;
        name.hidden = n.hidden;
        m_names.append(name);
    }
    if (namesLeftOut > 0)
        qCWarning(lcTables).noquote() << "XlsxWorkbookReader::open" << namesLeftOut
                                      << "defined names that are too long, too many or local to no sheet are left out";
    m_firstTab = workbook.firstSheet >= 0 && workbook.firstSheet < m_sheets.size() ? workbook.firstSheet : 0;
    m_current = -1;
    if (workbook.activeTab >= 0 && workbook.activeTab < m_sheets.size() && !m_sheets.at(workbook.activeTab).chart)
        m_current = workbook.activeTab;
    for (int i = 0; m_current < 0 && i < m_sheets.size(); ++i) {
        if (!m_sheets.at(i).chart)
            m_current = i;
    }

    if (!stylesPart.isEmpty() && m_zip.contains(stylesPart)) {
        // The cell formats may name the theme's colours.
        XlsxTheme theme;
        if (!themePart.isEmpty())
            theme.load(m_zip, themePart);
        if (!m_styles.load(m_zip, stylesPart, theme, err))
            return false;
    }
    return true;
}

QStringList XlsxWorkbookReader::sheetNames() const
{
    QStringList names;
    for (const SheetInfo& s : m_sheets)
        names.append(s.name);
    return names;
}

bool XlsxWorkbookReader::loadSharedStrings(QString& err)
{
    if (m_sharedStringsLoaded)
        return true;
    m_sharedStringsLoaded = true;
    if (m_sharedStringsPart.isEmpty() || !m_zip.contains(m_sharedStringsPart))
        return true;
    SharedStringsHandler handler(m_sharedStrings);
    const bool ok = XlsxXmlReader::parsePart(m_zip, m_sharedStringsPart, handler, err);
    m_richSharedStrings = handler.richTexts;
    return ok;
}

bool XlsxWorkbookReader::readSheet(int index, XlsxCellVisitor& visitor, QString& err, XlsxSheetLayout* layout)
{
    if (!readSheetCells(index, visitor, err, layout))
        return false;
    if (layout) {
        if (!layout->hyperlinks().empty()) {
            // External link targets live in the sheet's relationships.
            const QString& part = m_sheets.at(index).part;
            const int slash = part.lastIndexOf(QLatin1Char('/'));
            const QString rels = part.left(slash + 1) + QLatin1String("_rels/") + part.mid(slash + 1) + QLatin1String(".rels");
            RelsHandler handler;
            QString relsErr;
            if (m_zip.contains(rels) && !XlsxXmlReader::parsePart(m_zip, rels, handler, relsErr))
                qCWarning(lcTables).noquote() << "XlsxWorkbookReader::readSheet" << "unreadable relationships" << rels << relsErr;
            layout->resolveTargets(handler.externalTargets);
        }
        layout->finish(m_sheets.at(index).name);
    }
    return true;
}

bool XlsxWorkbookReader::readSheetCells(int index, XlsxCellVisitor& visitor, QString& err, XlsxSheetLayout* layout)
{
    if (index < 0 || index >= m_sheets.size() || m_sheets.at(index).part.isEmpty()) {
        err = XlsxErrors::missingPart();
        return false;
    }
    if (m_sheets.at(index).chart)
        return true; // a chart sheet has no cells
    if (!loadSharedStrings(err))
        return false;
    const QString& part = m_sheets.at(index).part;
    CellDelivery delivery(visitor, m_sharedStrings);
    if (m_zip.partSize(part) < kPipelineBytes || QThread::idealThreadCount() < 2) {
        SheetHandler handler(delivery, m_sharedStrings.size(), layout);
        return XlsxXmlReader::parsePart(m_zip, part, handler, err);
    }
    // A large sheet is parsed on a thread of its own while this one builds the cells.
    XlsxCellPipe pipe;
    std::thread parser;
    try {
        parser = std::thread([&] {
            SheetHandler handler(pipe, m_sharedStrings.size(), layout);
            QString parseErr;
            const bool ok = XlsxXmlReader::parsePart(m_zip, part, handler, parseErr);
            pipe.close(ok, parseErr);
        });
    } catch (const std::system_error&) {
        SheetHandler handler(delivery, m_sharedStrings.size(), layout); // no thread to be had
        return XlsxXmlReader::parsePart(m_zip, part, handler, err);
    }
    const bool ok = pipe.drain(delivery, err);
    parser.join();
    return ok;
}

double XlsxWorkbookReader::toDouble(const char* raw, int len, bool* ok)
{
    const char* p = raw;
    const char* const end = raw + qMax(len, 0);
    while (p < end && (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r'))
        ++p;
    if (p < end && *p == '+' && p + 1 < end && *(p + 1) != '-')
        ++p;
    double d = 0;
    const std::from_chars_result r = std::from_chars(p, end, d);
    if (r.ec == std::errc::result_out_of_range) {
        // from_chars leaves the value alone; the nearest double is what a stored number
        // this long or this small stands for.
        d = QByteArray(p, int(end - p)).toDouble();
    }
    if (ok)
        *ok = r.ec != std::errc::invalid_argument && r.ptr == end && p < end;
    return d;
}

QString XlsxWorkbookReader::numberText(const char* raw, int len)
{
    // Plain decimals of up to 15 significant digits print back as they are stored; only
    // the other forms (exponents, trailing zeros, long mantissas) need the round trip.
    const char* p = raw;
    const int n = len;
    int i = 0;
    if (i < n && p[i] == '-')
        ++i;
    const int intStart = i;
    while (i < n && p[i] >= '0' && p[i] <= '9')
        ++i;
    const int intLen = i - intStart;
    int fracLen = 0;
    int leadingFracZeros = 0;
    bool fast = intLen > 0 && i - intStart <= 15;
    if (fast && i < n && p[i] == '.') {
        ++i;
        const int fracStart = i;
        while (i < n && p[i] >= '0' && p[i] <= '9')
            ++i;
        fracLen = i - fracStart;
        while (leadingFracZeros < fracLen && p[fracStart + leadingFracZeros] == '0')
            ++leadingFracZeros;
        fast = fracLen > 0 && p[i - 1] != '0';
    }
    if (fast && i == n) {
        const bool zeroInt = intLen == 1 && p[intStart] == '0';
        if (fracLen == 0) {
            // Integers without a leading zero print as stored, unless trailing zeros make
            // the exponent form the shorter one: up to ten digits that is beyond five
            // zeros (2000000 prints as 2e+06).
            int zeros = 0;
            while (zeros < intLen && p[n - 1 - zeros] == '0')
                ++zeros;
            fast = (p[intStart] != '0' && (zeros == 0 || (intLen <= 10 && zeros <= 5))) || (zeroInt && intStart == 0);
        } else if (zeroInt) {
            fast = leadingFracZeros <= 3 && fracLen - leadingFracZeros <= 15;
        } else {
            fast = p[intStart] != '0' && intLen + fracLen <= 15;
        }
        if (fast)
            return QString::fromLatin1(p, n);
    }
    return QVariant(toDouble(raw, len)).toString();
}

QVariant XlsxWorkbookReader::dateTimeFromNumber(double number, bool is1904)
{
    // Only numbers from 0 are dates; beyond year 9999 there is no date to show.
    if (!std::isfinite(number) || number < 0.0 || number > 2958466.0)
        return QVariant();
    double num = number;
    if (!is1904 && num > 60)
        num -= 1; // the 1900 system counts a 29 February 1900 that never was
    const qint64 dayMs = 86400000;
    // To the nearest millisecond: a stored fraction of a day is rarely exact.
    const qint64 msecs = qint64(num * double(dayMs) + 0.5);
    const qint64 days = msecs / dayMs;
    const qint64 rest = msecs % dayMs;
    const QDate epoch = is1904 ? QDate(1904, 1, 1) : QDate(1899, 12, 31);
    const QDate date = epoch.addDays(days);
    if (date.year() > 9999)
        return QVariant();
    const QTime time = QTime::fromMSecsSinceStartOfDay(int(rest));
    if (num < 1.0)
        return QVariant(time);
    if (num == std::floor(num))
        return QVariant(date);
    // A workbook's date and time belong to no zone: kept off the local one, whose summer
    // time would skip some of them (02:30 on the day clocks go forward is no local time).
    return QVariant(QDateTime(date, time, Qt::UTC));
}

QString XlsxWorkbookReader::dateTimeText(const QVariant& value)
{
    if (value.userType() == QMetaType::QDateTime)
        return value.toDateTime().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzz"));
    return value.toString();
}

QVariant XlsxWorkbookReader::dateTimeFromIso(const QString& text)
{
    const QString t = text.trimmed();
    if (t.size() < 5)
        return QVariant();
    if (t.at(2) == QLatin1Char(':')) {
        const QTime time = QTime::fromString(t, Qt::ISODateWithMs);
        return time.isValid() ? QVariant(time) : QVariant();
    }
    if (t.size() == 10) {
        const QDate date = QDate::fromString(t, Qt::ISODate);
        return date.isValid() ? QVariant(date) : QVariant();
    }
    QDateTime dt = QDateTime::fromString(t, Qt::ISODateWithMs);
    if (!dt.isValid()) // perhaps a time the local zone skips: read it as one of no zone
        dt = QDateTime::fromString(t + QLatin1Char('Z'), Qt::ISODateWithMs);
    if (!dt.isValid())
        return QVariant();
    if (dt.time() == QTime(0, 0))
        return QVariant(dt.date());
    return QVariant(QDateTime(dt.date(), dt.time(), Qt::UTC));
}

Q_NEVER_INLINE QString XlsxWorkbookReader::decodeEscapes(const QString& text)
{
    const auto hex = [](ushort u) {
        if (u >= '0' && u <= '9')
            return int(u - '0');
        u |= 0x20;
        return u >= 'a' && u <= 'f' ? int(u - 'a' + 10) : -1;
    };
    const QLatin1String mark("_x");
    int i = text.indexOf(mark);
    if (i < 0)
        return text;
    QString out;
    int from = 0;
    const QChar* p = text.constData();
    const int n = text.size();
    while (i >= 0 && i + 6 < n) {
        int value = 0;
        bool escape = p[i + 6].unicode() == '_';
        for (int k = 2; escape && k < 6; ++k) {
            const int digit = hex(p[i + k].unicode());
            escape = digit >= 0;
            value = value * 16 + digit;
        }
        if (!escape) {
            i = text.indexOf(mark, i + 1);
            continue;
        }
        if (out.isNull())
            out.reserve(n);
        out.append(p + from, i - from);
        out.append(QChar(ushort(value)));
        from = i + 7;
        i = text.indexOf(mark, from);
    }
    if (out.isNull())
        return text;
    out.append(p + from, n - from);
    return out;
}
