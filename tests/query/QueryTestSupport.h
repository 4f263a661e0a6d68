#pragma once

#include <ScriptedTransport.h>
#include <ZentraFields.h>

#include <QList>
#include <QString>
#include <QVariantMap>

namespace QueryTest {

inline QString key(const char* name)
{
    return QString::fromLatin1(name);
}

// Data rows numbered from `first`, each with its own position string.
inline QList<QVariantMap> numberedRows(int first, int count)
{
    QList<QVariantMap> rows;
    for (int i = first; i < first + count; ++i)
        rows.append(QVariantMap{{"id", i}, {key(Zentra_Fields::System::positionStr), QStringLiteral("p%1").arg(i)}});
    return rows;
}

inline QList<int> ids(const QList<QMap<QString, QVariant>>& rows)
{
    QList<int> out;
    for (const auto& row : rows)
        out.append(row.value("id", -1).toInt());
    return out;
}

inline QList<int> range(int first, int count)
{
    QList<int> out;
    for (int i = first; i < first + count; ++i)
        out.append(i);
    return out;
}

// Row 0 of a recorded request.
inline QVariantMap requestHead(const ScriptedTransport::Request& request)
{
    return request.msg.toList().value(0).toMap();
}

// Scripts a sequence of outcomes written as short words:
//   "rows:N"  a successful page of the next N numbered rows
//   "fail"    a reply whose status is not success ("服务端拒绝")
//   "timeout" the transport gives up waiting
//   "tfail"   the transport fails ("连接已断开")
//   "raw:N"   a send result N that no real transport gives
inline void script(ScriptedTransport& transport, const QStringList& outcomes, int totalSize, int& nextId)
{
    for (const QString& word : outcomes) {
        const QString kind = word.section(':', 0, 0);
        const int n = word.section(':', 1, 1).toInt();
        if (kind == "rows") {
            transport.queueRows(numberedRows(nextId, n), totalSize);
            nextId += n;
        } else if (kind == "fail") {
            transport.queueServerFailure(QStringLiteral("服务端拒绝"));
        } else if (kind == "timeout") {
            transport.queueTimeout();
        } else if (kind == "tfail") {
            transport.queueTransportFailure(QStringLiteral("连接已断开"));
        } else if (kind == "raw") {
            transport.queueOutcome({n, QVariant(), 0});
        }
    }
}

} // namespace QueryTest
