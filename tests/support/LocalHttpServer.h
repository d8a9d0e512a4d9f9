#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

// What the test server answers for one path.
struct HttpAnswer {
    int status = 200;
    QByteArray body;
    QList<std::pair<QByteArray, QByteArray>> headers;
    // False: no Content-Length; the body ends when the connection closes.
    bool contentLength = true;
    // A Content-Length to announce instead of the body's (a lie, or a huge size).
    qint64 announcedLength = -1;
    // Read the request and never answer.
    bool silent = false;
    // Send the head, then one byte of the body every dripMs.
    int dripMs = 0;

    static HttpAnswer make(int status, QByteArray body,
                           QList<std::pair<QByteArray, QByteArray>> headers = {}) {
        return HttpAnswer{status, std::move(body), std::move(headers)};
    }
};
Q_DECLARE_METATYPE(HttpAnswer)

// A one-request-per-connection HTTP/1.1 server on 127.0.0.1 for tests. Serves the answers
// given per path (404 otherwise) and records the requests it saw.
class LocalHttpServer : public QObject {
public:
    LocalHttpServer() {
        QObject::connect(&m_server, &QTcpServer::newConnection, this, [this] { accept(); });
    }

    bool listen() { return m_server.listen(QHostAddress::LocalHost, 0); }
    bool isListening() const { return m_server.isListening(); }
    QString baseUrl() const {
        return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort());
    }
    void answer(const QByteArray& path, const HttpAnswer& a) { m_answers.insert(path, a); }
    int hits(const QByteArray& path) const { return int(m_requests.count(path)); }
    // The head of the last request for path, header names in lower case.
    QByteArray lastHead(const QByteArray& path) const { return m_heads.value(path); }

private:
    void accept() {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                QByteArray& buffer = m_buffers[socket];
                buffer += socket->readAll();
                const qsizetype end = buffer.indexOf("\r\n\r\n");
                if (end < 0) {
                    if (buffer.size() > 16384)
                        socket->abort();
                    return;
                }
                const QByteArray head = buffer.left(end);
                m_buffers.remove(socket);
                QObject::disconnect(socket, &QTcpSocket::readyRead, nullptr, nullptr);
                const QByteArray path = head.split('\n').value(0).trimmed().split(' ').value(1);
                m_requests.append(path);
                m_heads.insert(path, head.toLower());
                respond(socket, m_answers.value(path, HttpAnswer::make(404, "not found")));
            });
        }
    }

    static void respond(QTcpSocket* socket, const HttpAnswer& a) {
        if (a.silent)
            return;
        QByteArray head = "HTTP/1.1 " + QByteArray::number(a.status) + " Answer\r\n";
        for (const auto& [name, value] : a.headers)
            head += name + ": " + value + "\r\n";
        if (a.contentLength)
            head += "Content-Length: " +
                    QByteArray::number(a.announcedLength >= 0 ? a.announcedLength : a.body.size()) +
                    "\r\n";
        head += "Connection: close\r\n\r\n";
        socket->write(head);
        if (a.dripMs <= 0) {
            socket->write(a.body);
            socket->disconnectFromHost();
            return;
        }
        auto* timer = new QTimer(socket); // deleted with the socket
        QObject::connect(timer, &QTimer::timeout, socket, [socket, rest = a.body]() mutable {
            if (rest.isEmpty())
                return;
            socket->write(rest.left(1));
            rest.remove(0, 1);
            if (rest.isEmpty())
                socket->disconnectFromHost();
        });
        timer->start(a.dripMs);
    }

    QTcpServer m_server;
    QHash<QByteArray, HttpAnswer> m_answers;
    QList<QByteArray> m_requests;
    QHash<QByteArray, QByteArray> m_heads;
    QHash<QTcpSocket*, QByteArray> m_buffers;
};
