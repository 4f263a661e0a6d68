// Runs python3 and the openpyxl helper script next to these tests, which build workbooks
// the way another program would and report what that program sees in them.
#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QStringList>

namespace XlsxProbe {

inline QString script() { return QStringLiteral(VANTOR_TEST_SOURCE_DIR "/xlsx_probe.py"); }

// True when python3 ran the arguments and exited with status 0; `out` gets what it printed.
inline bool python(const QStringList& args, QByteArray* out = nullptr)
{
    QProcess p;
    p.start(QStringLiteral("/usr/bin/python3"), args);
    const bool ok = p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    if (out)
        *out = p.readAllStandardOutput();
    return ok;
}

// The helper's report ("dump" or "book") on a workbook; empty without openpyxl.
inline QJsonObject probe(const char* command, const QString& path)
{
    QByteArray out;
    python({script(), QString::fromLatin1(command), path}, &out);
    return QJsonDocument::fromJson(out).object();
}

// The cells of one sheet in the "dump" report, by reference; empty without openpyxl.
inline QMap<QString, QJsonObject> cells(const QString& path, int sheet = 0)
{
    QMap<QString, QJsonObject> byRef;
    for (const QJsonValue& c : probe("dump", path).value("sheets").toArray().at(sheet).toObject().value("cells").toArray())
        byRef.insert(c.toObject().value("ref").toString(), c.toObject());
    return byRef;
}

inline QString compact(const QJsonValue& v)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray{v}).toJson(QJsonDocument::Compact));
}

} // namespace XlsxProbe
