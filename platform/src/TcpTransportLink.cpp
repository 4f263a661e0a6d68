#include "TcpTransportLink.h"

#include "IPresenterTransport.h"
#include "PlatformLogging.h"
#include "ScriptedTransport.h"
#include "ZentraFields.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

namespace {
QString errnoText(int error)
{
    switch (error) {
    case 0:
        return QStringLiteral("连接被对方关闭");
    case ECONNREFUSED:
        return QStringLiteral("连接被拒绝");
    case ECONNRESET:
    case EPIPE:
        return QStringLiteral("连接被对方重置");
    case ETIMEDOUT:
        return QStringLiteral("连接超时");
    case EHOSTUNREACH:
    case ENETUNREACH:
    case ENETDOWN:
        return QStringLiteral("网络不可达");
    default:
        return QStringLiteral("网络错误（%1）").arg(QString::fromLocal8Bit(std::strerror(error)));
    }
}

int pollFor(int fd, short events, const QDeadlineTimer& deadline)
{
    for (;;) {
        pollfd p = {fd, events, 0};
        const qint64 left = deadline.remainingTime();
        const int rc = ::poll(&p, 1, left < 0 ? -1 : int(qMin<qint64>(left, 1 << 30)));
        if (rc < 0 && errno == EINTR)
            continue;
        return rc;
    }
}

// A connected, blocking socket, or -1 with the reason.
int openSocket(const QString& host, quint16 port, const QDeadlineTimer& deadline, QString* why)
{
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.toUtf8().constData(), QByteArray::number(port).constData(), &hints, &found) != 0 || !found) {
        *why = QStringLiteral("找不到主机");
        return -1;
    }
    int error = ECONNREFUSED;
    int fd = -1;
    for (addrinfo* a = found; a && fd < 0; a = a->ai_next) {
        fd = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
        if (fd < 0) {
            error = errno;
            continue;
        }
        int rc = ::connect(fd, a->ai_addr, a->ai_addrlen);
        if (rc < 0 && errno == EINPROGRESS) {
            rc = pollFor(fd, POLLOUT, deadline);
            if (rc == 0) {
                error = ETIMEDOUT;
                rc = -1;
            } else if (rc > 0) {
                socklen_t len = sizeof error;
                rc = ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) == 0 && error == 0 ? 0 : -1;
            } else {
                error = errno;
            }
        } else if (rc < 0) {
            error = errno;
        }
        if (rc < 0) {
            ::close(fd);
            fd = -1;
        }
    }
    ::freeaddrinfo(found);
    if (fd < 0) {
        *why = errnoText(error);
        return -1;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK); // the reading thread blocks on it
    const int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return fd;
}
} // namespace

TcpTransportLink::TcpTransportLink(const QString& host, quint16 port, PendingRequests& pending)
    : m_host(host)
    , m_port(port)
    , m_pending(pending)
{
    m_reader = std::thread([this] {
        readLoop();
        // A link let go from this thread ends with it.
        const std::unique_ptr<TcpTransportLink> self = std::move(m_self);
    });
    m_readerId = m_reader.get_id();
}

TcpTransportLink::~TcpTransportLink()
{
    stop();
    if (isReadingThread())
        m_reader.detach(); // released from this thread, whose loop is over
    else
        m_reader.join();
}

void TcpTransportLink::stop()
{
    {
        QMutexLocker lock(&m_mutex);
        m_stopping = true;
        if (m_fd >= 0)
            ::shutdown(m_fd, SHUT_RDWR); // the reading thread wakes, closes and fails what is in flight
    }
    m_changed.wakeAll();
}

void TcpTransportLink::releaseFromReadingThread(std::unique_ptr<TcpTransportLink> link,
                                                std::unique_ptr<PendingRequests> pending)
{
    TcpTransportLink* const self = link.get();
    self->stop();
    self->m_ownPending = std::move(pending);
    self->m_self = std::move(link);
}

QString TcpTransportLink::endpoint() const
{
    return QStringLiteral("%1:%2").arg(m_host).arg(m_port);
}

bool TcpTransportLink::connectLocked(const QDeadlineTimer& deadline, QString* why)
{
    qCDebug(lcPlatform).noquote() << "TcpTransportLink::connectLocked" << QStringLiteral("连接交易网关%1").arg(endpoint());
    QString reason;
    const int fd = openSocket(m_host, m_port, deadline, &reason);
    if (fd < 0) {
        *why = QStringLiteral("无法连接交易网关%1：%2").arg(endpoint(), reason);
        qCInfo(lcPlatform).noquote() << "TcpTransportLink::connectLocked" << *why;
        return false;
    }
    m_fd = fd;
    m_connected = true;
    ++m_connection;
    qCInfo(lcPlatform).noquote() << "TcpTransportLink::connectLocked" << QStringLiteral("已连接交易网关%1").arg(endpoint());
    return true;
}

TcpTransportLink::SendResult TcpTransportLink::send(const std::shared_ptr<PendingRequests::Entry>& entry,
                                                    const QByteArray& frame, const QDeadlineTimer& deadline, QString* why)
{
    // Another caller may be connecting or writing a large frame: wait for it no longer
    // than this request may take.
    const qint64 waitMs = deadline.remainingTime();
    if (!m_mutex.tryLock(waitMs < 0 ? -1 : int(qMin<qint64>(waitMs, std::numeric_limits<int>::max())))) {
        // Still no connection to send on: for this request the gateway is unreachable.
        if (!m_connected) {
            *why = QStringLiteral("无法连接交易网关%1：连接超时").arg(endpoint());
            return NotConnected;
        }
        *why = QStringLiteral("等待发送到交易网关%1超时").arg(endpoint());
        return TimedOut;
    }
    struct Unlock {
        QMutex& mutex;
        ~Unlock() { mutex.unlock(); }
    } unlock{m_mutex};
    // A connection whose write failed is being closed by the reading thread; the next one
    // is opened once it is gone.
    while (m_broken && !m_stopping) {
        if (!m_changed.wait(&m_mutex, deadline)) {
            *why = QStringLiteral("连接交易网关%1超时").arg(endpoint());
            return TimedOut;
        }
    }
    if (m_stopping) {
        *why = QStringLiteral("与交易网关%1的连接已关闭").arg(endpoint());
        return NotConnected;
    }
    if (m_fd < 0) {
        if (!connectLocked(deadline, why))
            return NotConnected;
        // The reading thread takes the new connection once this frame is written; the lock
        // is kept, so that no other caller's write comes between.
        m_changed.wakeAll();
    }

    const char* data = frame.constData();
    qsizetype left = frame.size();
    int error = 0;
    while (left > 0) {
        const ssize_t put = ::send(m_fd, data, size_t(left), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put > 0) {
            data += put;
            left -= put;
            continue;
        }
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            const int rc = pollFor(m_fd, POLLOUT, deadline);
            if (rc > 0)
                continue;
            error = rc == 0 ? ETIMEDOUT : errno;
        } else {
            error = put < 0 ? errno : EPIPE;
        }
        break;
    }
    if (left == 0) {
        m_pending.markSent(entry, m_connection);
        return Sent;
    }
    // Part of a frame may have left: the connection cannot carry another one.
    ::shutdown(m_fd, SHUT_RDWR);
    m_broken = true;
    *why = QStringLiteral("与交易网关%1的连接已断开：%2").arg(endpoint(), errnoText(error));
    qCInfo(lcPlatform).noquote() << "TcpTransportLink::send" << *why;
    return error == ETIMEDOUT ? TimedOut : Broken;
}

void TcpTransportLink::readLoop()
{
    for (;;) {
        int fd = -1;
        quint64 connection = 0;
        {
            QMutexLocker lock(&m_mutex);
            while (!m_stopping && m_fd < 0)
                m_changed.wait(&m_mutex);
            if (m_fd < 0)
                return; // stopping without a connection
            fd = m_fd;
            connection = m_connection;
        }
        const QString reason = readConnection(fd);
        {
            QMutexLocker lock(&m_mutex);
            ::close(fd);
            m_fd = -1;
            m_connected = false;
            m_broken = false;
        }
        m_changed.wakeAll();
        qCInfo(lcPlatform).noquote() << "TcpTransportLink::readLoop" << reason;
        // Requests written to the lost connection cannot be answered any more.
        m_pending.failSent(connection, ScriptedTransport::failureReply(reason), IPresenterTransport::Failure);
    }
}

QString TcpTransportLink::readConnection(int fd)
{
    m_decoder.clear();
    if (m_readBuffer.size() == 0)
        m_readBuffer.resize(256 * 1024);
    WireFrame frame;
    for (;;) {
        const ssize_t got = ::recv(fd, m_readBuffer.data(), size_t(m_readBuffer.size()), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            bool stopping = false;
            {
                QMutexLocker lock(&m_mutex);
                stopping = m_stopping;
            }
            if (stopping)
                return QStringLiteral("与交易网关%1的连接已关闭").arg(endpoint());
            return QStringLiteral("与交易网关%1的连接已断开：%2").arg(endpoint(), errnoText(got < 0 ? errno : 0));
        }
        m_decoder.append(m_readBuffer.constData(), got);
        for (;;) {
            const auto status = m_decoder.next(frame);
            if (status == WireFrameCodec::NeedMore)
                break;
            if (status == WireFrameCodec::Error) {
                qCCritical(lcPlatform).noquote() << "TcpTransportLink::readConnection"
                                                 << QStringLiteral("交易网关%1发来的数据无法解析，断开连接：%2")
                                                        .arg(endpoint(), m_decoder.errorString());
                ::shutdown(fd, SHUT_RDWR);
                return QStringLiteral("交易网关发来的数据无法解析");
            }
            dispatch(frame);
        }
    }
}

void TcpTransportLink::dispatch(WireFrame& frame)
{
    if (frame.kind == QLatin1String(WireKind::reply)) {
        m_pending.complete(frame.id, IPresenterTransport::Reply, std::move(frame.msg));
    } else if (frame.kind == QLatin1String(WireKind::failure)) {
        const QVariantMap head = frame.msg.toList().value(0).toMap();
        if (head.value(QLatin1String(Zentra_Fields::System::textDescription)).toString().isEmpty())
            frame.msg = ScriptedTransport::failureReply(QStringLiteral("交易网关处理请求失败"));
        m_pending.complete(frame.id, IPresenterTransport::Failure, std::move(frame.msg));
    } else if (frame.kind == QLatin1String(WireKind::push)) {
        emit pushed(frame.type, frame.msg);
    } else {
        qCDebug(lcPlatform).noquote() << "TcpTransportLink::dispatch" << QStringLiteral("忽略类别为%1的帧").arg(frame.kind);
    }
}
