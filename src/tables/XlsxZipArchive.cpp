#include "XlsxZipArchive.h"

#include "VantorLogging.h"
#include "XlsxErrors.h"

#include <QByteArray>
#include <QFile>
#include <QMutex>
#include <QMutexLocker>
#include <QThread>
#include <QVector>
#include <QWaitCondition>

#include <zip.h>

#include <cstring>
#include <system_error>
#include <thread>

XlsxZipArchive::~XlsxZipArchive()
{
    if (m_zip)
        zip_discard(m_zip);
}

bool XlsxZipArchive::open(const QString& fileName, QString& err)
{
    int code = 0;
    m_zip = zip_open(QFile::encodeName(fileName).constData(), ZIP_RDONLY, &code);
    if (!m_zip) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        qCWarning(lcTables).noquote() << "XlsxZipArchive::open" << fileName << zip_error_strerror(&error);
        zip_error_fini(&error);
        err = XlsxErrors::openFailed();
        return false;
    }
    // Some writers store folder separators as "\\" or begin names with "/"; such entries
    // are found under the part name they stand for.
    const zip_int64_t count = zip_get_num_entries(m_zip, 0);
    for (zip_int64_t i = 0; i < count && m_otherNames.size() < 100000; ++i) {
        const char* raw = zip_get_name(m_zip, zip_uint64_t(i), ZIP_FL_ENC_GUESS);
        if (!raw || (!std::strchr(raw, '\\') && raw[0] != '/'))
            continue;
        const QString name = partKey(QString::fromUtf8(raw));
        if (!m_otherNames.contains(name))
            m_otherNames.insert(name, qint64(i));
    }
    return true;
}

QString XlsxZipArchive::partKey(QString name)
{
    name.replace(QLatin1Char('\\'), QLatin1Char('/'));
    while (name.startsWith(QLatin1Char('/')))
        name.remove(0, 1);
    return name.toLower();
}

qint64 XlsxZipArchive::locate(const QString& partName) const
{
    if (!m_zip)
        return -1;
    QString name = partName;
    if (name.startsWith(QLatin1Char('/')))
        name.remove(0, 1);
    // Part names compare without regard to case.
    const qint64 index = zip_name_locate(m_zip, name.toUtf8().constData(), ZIP_FL_NOCASE | ZIP_FL_ENC_GUESS);
    if (index >= 0 || m_otherNames.isEmpty())
        return index;
    return m_otherNames.value(partKey(name), -1);
}

bool XlsxZipArchive::contains(const QString& partName) const
{
    return locate(partName) >= 0;
}

qint64 XlsxZipArchive::partSize(const QString& partName) const
{
    const qint64 index = locate(partName);
    if (index < 0)
        return -1;
    zip_stat_t st;
    zip_stat_init(&st);
    if (zip_stat_index(m_zip, zip_uint64_t(index), 0, &st) != 0 || !(st.valid & ZIP_STAT_SIZE))
        return -1;
    return qint64(qMin<zip_uint64_t>(st.size, zip_uint64_t(kMaxPartBytes)));
}

bool XlsxZipArchive::readPart(const QString& partName, const std::function<bool(const char*, int)>& sink,
                              QString& err) const
{
    const qint64 index = locate(partName);
    if (index < 0) {
        err = XlsxErrors::missingPart();
        return false;
    }
    zip_stat_t st;
    zip_stat_init(&st);
    if (zip_stat_index(m_zip, zip_uint64_t(index), 0, &st) != 0) {
        err = XlsxErrors::openFailed();
        return false;
    }
    qint64 ceiling = kMaxPartBytes;
    if (st.valid & ZIP_STAT_SIZE)
        ceiling = qMin<qint64>(ceiling, qint64(qMin<zip_uint64_t>(st.size, zip_uint64_t(kMaxPartBytes))));
    if (st.valid & ZIP_STAT_COMP_SIZE) {
        const qint64 byRatio = qMax<qint64>(kRatioFloorBytes, qint64(qMin<zip_uint64_t>(st.comp_size, 1u << 30)) * kMaxRatio);
        ceiling = qMin(ceiling, byRatio);
    }
    if ((st.valid & ZIP_STAT_SIZE) && qint64(qMin<zip_uint64_t>(st.size, zip_uint64_t(kMaxPartBytes) + 1)) > ceiling) {
        qCWarning(lcTables).noquote() << "XlsxZipArchive::readPart" << partName << "declared size" << quint64(st.size)
                                      << "compressed" << quint64(st.comp_size);
        err = XlsxErrors::tooLarge();
        return false;
    }

    zip_file_t* file = zip_fopen_index(m_zip, zip_uint64_t(index), 0);
    if (!file) {
        qCWarning(lcTables).noquote() << "XlsxZipArchive::readPart" << partName << zip_strerror(m_zip);
        err = XlsxErrors::openFailed();
        return false;
    }
    bool ok;
    if ((st.valid & ZIP_STAT_SIZE) && qint64(st.size) >= kReadAheadBytes && QThread::idealThreadCount() > 1)
        ok = inflateAhead(file, partName, ceiling, sink, err);
    else
        ok = inflate(file, partName, ceiling, sink, err);
    zip_fclose(file);
    return ok;
}

bool XlsxZipArchive::inflate(zip_file* file, const QString& partName, qint64 ceiling,
                             const std::function<bool(const char*, int)>& sink, QString& err)
{
    char buffer[kBlockBytes];
    qint64 total = 0;
    for (;;) {
        const zip_int64_t got = zip_fread(file, buffer, sizeof buffer);
        if (got < 0) {
            qCWarning(lcTables).noquote() << "XlsxZipArchive::readPart" << partName << zip_file_strerror(file);
            err = XlsxErrors::openFailed();
            return false;
        }
        if (got == 0)
            return true;
        total += got;
        if (total > ceiling) {
            qCWarning(lcTables).noquote() << "XlsxZipArchive::readPart" << partName << "inflates past" << ceiling;
            err = XlsxErrors::tooLarge();
            return false;
        }
        if (!sink(buffer, int(got)))
            return false;
    }
}

bool XlsxZipArchive::inflateAhead(zip_file* file, const QString& partName, qint64 ceiling,
                                  const std::function<bool(const char*, int)>& sink, QString& err)
{
    // A second thread inflates the next blocks while this one consumes the last; a few
    // blocks at most are in flight.
    constexpr int kInFlight = 4;
    QMutex mutex;
    QWaitCondition filled;
    QWaitCondition emptied;
    QVector<QByteArray> full;
    QVector<QByteArray> spare;
    bool finished = false;
    bool stop = false;
    bool inflated = true;
    QString inflateErr;
    auto produce = [&] {
        const auto blockSink = [&](const char* data, int len) {
            QMutexLocker locker(&mutex);
            while (full.size() >= kInFlight && !stop)
                emptied.wait(&mutex);
            if (stop)
                return false;
            QByteArray block = spare.isEmpty() ? QByteArray() : spare.takeLast();
            block.resize(0);
            block.append(data, len);
            full.append(block);
            filled.wakeOne();
            return true;
        };
        QString e;
        const bool ok = inflate(file, partName, ceiling, blockSink, e);
        QMutexLocker locker(&mutex);
        finished = true;
        inflated = ok;
        inflateErr = e;
        filled.wakeAll();
    };
    std::thread inflater;
    try {
        inflater = std::thread(produce);
    } catch (const std::system_error&) {
        return inflate(file, partName, ceiling, sink, err); // no thread to be had
    }
    bool consumed = true;
    QByteArray block;
    for (;;) {
        {
            QMutexLocker locker(&mutex);
            if (!block.isNull()) {
                spare.append(block);
                block = QByteArray();
            }
            while (full.isEmpty() && !finished)
                filled.wait(&mutex);
            if (full.isEmpty())
                break;
            block = full.takeFirst();
            emptied.wakeOne();
        }
        if (!sink(block.constData(), block.size())) {
            consumed = false;
            QMutexLocker locker(&mutex);
            stop = true;
            emptied.wakeAll();
            break;
        }
    }
    inflater.join();
    if (!consumed)
        return false;
    if (!inflated)
        err = inflateErr;
    return inflated;
}
