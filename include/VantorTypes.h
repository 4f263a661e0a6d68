#pragma once

// Enumerations and records shared by the exported classes of the library.

#include "VantorGlobal.h"

#include <QList>
#include <QMap>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVariant>

// What a single query or a send returns. Any value besides 0 and 1 means head and data;
// the fixed type keeps every int a valid value.
enum QueryDataMode : int {
    QueryHeadLine = 0,    // the head line (row 0 of the reply) alone, when not empty
    QueryDataList = 1,    // the data rows alone
    QueryHeadAndData = 2, // the head line (when not empty), then the data rows
};

// Column format of a written table, keyed by zero-based column index. Header maps carry
// further values, which are written as text; the fixed type keeps every int a valid value.
enum ExportFormat : int {
    ExportFormatText = 0,
    ExportFormatNumber = 1, // numeric column
};

// Text encoding of a written CSV file.
enum ExportFileCode {
    ExportFileCodeGb18030 = 0,
    ExportFileCodeUtf8 = 1,
};

// Which rows a table reader keeps.
enum ReadTableCfg {
    ReadAllRows = 0,
    SkipEmptyRows = 1, // rows whose cells are all empty after trimming are dropped
};

// The filter offered by the export and import dialogs.
enum ExportFileFormat {
    ExportFileFormatDefault = 0, // the format the user chose last
    ExportFileFormatCsv = 1,
    ExportFileFormatXlsx = 2,
    ExportFileFormatZip = 3,
};

// How quantities and balances are grouped for display.
enum ShowType {
    ShowTypeGroup3Comma = 0, // groups of three digits separated by ","
    ShowTypeGroup4Space = 1, // groups of four digits separated by " "
};

// How surplus decimals are treated for display.
enum DecimalDigitsDealType {
    DecimalDigitsFloor = 0,
    DecimalDigitsRound = 1, // half away from zero
    DecimalDigitsCeil = 2,
};

// How a sellable quantity is spread over several holdings.
enum SoldQtyAllocStrategy {
    SoldQtyAllocSequential = 0,
    SoldQtyAllocRoundLot = 1,
};

// Zoom level of the client.
enum ClientZoomType {
    ClientZoomOff = 0,
    ClientZoomLarge = 1,  // largest font, screens of at least 1600 pixels
    ClientZoomMedium = 2, // screens of at least 1920 pixels
    ClientZoomSmall = 3,  // screens of at least 2560 pixels
};

// Placement of a widget on its screen's available area; larger values count as centre.
enum WidgetShowPosType {
    WidgetShowTopLeft = 0,
    WidgetShowTopRight = 1,
    WidgetShowCenter = 2,
    WidgetShowBottomLeft = 3,
    WidgetShowBottomRight = 4,
};

// How a one-pattern filter entry is matched against a text.
namespace CompareLike {
enum LikeType {
    LikeContains = 0,
    LikeStartsWith = 1,
    LikeEndsWith = 2,
};
} // namespace CompareLike

// Processor facts.
struct SysCpuInfo {
    QString cpuName;               // names of every processor, joined with "|"
    qint32 cpuCount = 0;           // number of processors
    qint32 logicalProcessorCount = 0;
    double maxClockSpeed = 0;      // GHz
};

// One load sample of the system and of this process.
struct SysAndProcRCInfo {
    double systemCpuUsage = 0;  // percent 0-100
    double usedMemory = 0;      // MiB
    double processCpuUsage = 0; // percent
    double processMemory = 0;   // MiB
    double totalMemory = 0;     // MiB
    double availableMemory = 0; // MiB
};

// One screen, in the order the GUI lists them.
struct SysScreenInfo {
    qint32 index = 0;
    qint32 width = 0;
    qint32 height = 0;
    QString name;
    qint32 physicalWidth = -1;
    qint32 physicalHeight = -1;
    qint32 monitorWidth = -1;
    qint32 monitorHeight = -1;
};

// The callback side of a one-shot timer (VantorUtils::OnceTimer). An implementation must
// also derive from QObject (or a subclass): its timers are created as children of that
// object and fire on its thread. Objects are never deleted through this interface.
class VANTORUTILS_EXPORT IOnceTimerBase
{
public:
    // Called on the object's thread when the timer `timerId` of this object fires.
    virtual void timeout(const QString& timerId) = 0;

protected:
    ~IOnceTimerBase() = default;
};

Q_DECLARE_METATYPE(SysCpuInfo)
Q_DECLARE_METATYPE(SysAndProcRCInfo)
Q_DECLARE_METATYPE(SysScreenInfo)
