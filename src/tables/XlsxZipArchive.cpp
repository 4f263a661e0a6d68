#include "XlsxZipArchive.h"

#include "VantorLogging.h"
#include "XlsxErrors.h"

#include <QFile>

#include <zip.h>

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
    return true;
}

qint64 XlsxZipArchive::locate(const QString& partName) const
{
    if (!m_zip)
        return -1;
    QString name = partName;
    if (name.startsWith(QLatin1Char('/')))
        name.remove(0, 1);
    // Part names compare without regard to case.
    return zip_name_locate(m_zip, name.toUtf8().constData(), ZIP_FL_NOCASE | ZIP_FL_ENC_GUESS);
}

bool XlsxZipArchive::contains(const QString& partName) const
{
    return locate(partName) >= 0;
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
    char buffer[64 * 1024];
    qint64 total = 0;
    bool ok = true;
    for (;;) {
        const zip_int64_t got = zip_fread(file, buffer, sizeof buffer);
        if (got < 0) {
            qCWarning(lcTables).noquote() << "XlsxZipArchive::readPart" << partName << zip_file_strerror(file);
            err = XlsxErrors::openFailed();
            ok = false;
            break;
        }
        if (got == 0)
            break;
        total += got;
        if (total > ceiling) {
            qCWarning(lcTables).noquote() << "XlsxZipArchive::readPart" << partName << "inflates past" << ceiling;
            err = XlsxErrors::tooLarge();
            ok = false;
            break;
        }
        if (!sink(buffer, int(got))) {
            ok = false;
            break;
        }
    }
    zip_fclose(file);
    return ok;
}
