#pragma once

#include "PendingRequests.h"
#include "WireFrameCodec.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QMutex>
#include <QObject>
#include <QWaitCondition>

#include <atomic>
#include <memory>
#include <thread>

// The connection of a TcpTransport. Callers write their frames themselves, one at a time,
// opening the connection first when there is none; a reading thread of its own splits what
// arrives into frames, completes the waiting request of each reply (waking that caller
// only) and emits pushes. When the connection breaks, the requests written to it fail and
// the next send opens a new one.
class TcpTransportLink : public QObject
{
    Q_OBJECT
public:
    enum SendResult { Sent, NotConnected, TimedOut, Broken };

    TcpTransportLink(const QString& host, quint16 port, PendingRequests& pending);
    // Closes the connection (requests in flight fail) and ends the reading thread.
    ~TcpTransportLink() override;

    // Writes one whole frame before the deadline and marks the entry with the connection
    // it went to. `why` tells what went wrong otherwise.
    SendResult send(const std::shared_ptr<PendingRequests::Entry>& entry, const QByteArray& frame,
                    const QDeadlineTimer& deadline, QString* why);
    bool isReadingThread() const { return std::this_thread::get_id() == m_readerId; }
    // Lets a link go from its own reading thread (a push listener dropped the last hold on the
    // transport), which cannot wait for itself: the connection closes and the thread destroys
    // the link and the requests once it is out of its loop.
    static void releaseFromReadingThread(std::unique_ptr<TcpTransportLink> link, std::unique_ptr<PendingRequests> pending);
    QString endpoint() const;

signals:
    void pushed(const QString& type, const QVariant& msg);

private:
    // Closes the connection and tells the reading thread to end.
    void stop();
    bool connectLocked(const QDeadlineTimer& deadline, QString* why);
    void readLoop();
    // Reads one connection until it ends; the reason it ended.
    QString readConnection(int fd);
    void dispatch(WireFrame& frame);

    const QString m_host;
    const quint16 m_port;
    PendingRequests& m_pending;

    // Guards the members below and every write to the socket. A caller waiting behind
    // another one that connects or writes slowly takes it with its own time-out.
    QMutex m_mutex;
    QWaitCondition m_changed;
    int m_fd = -1;
    quint64 m_connection = 0; // number of the current (or last) connection
    bool m_broken = false;    // a write failed: the reading thread is to close the connection
    bool m_stopping = false;
    // Whether a connection is open, for those who could not take the lock to look.
    std::atomic<bool> m_connected{false};

    WireFrameCodec m_decoder; // reading thread only
    QByteArray m_readBuffer;  // reading thread only
    std::thread m_reader;
    std::thread::id m_readerId;
    // Set by releaseFromReadingThread only, on the reading thread.
    std::unique_ptr<TcpTransportLink> m_self;
    std::unique_ptr<PendingRequests> m_ownPending;
};
