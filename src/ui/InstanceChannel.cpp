#include "ui/InstanceChannel.h"

#include <QCryptographicHash>
#include <QFileInfo>
#include <QLocalSocket>
#include <QThread>

#include <filesystem>

namespace varnel {

QString InstanceChannel::nameFor(const std::filesystem::path& root) {
    std::error_code ec;
    const auto canonical = std::filesystem::weakly_canonical(root, ec);
    const QByteArray key = QByteArray::fromStdString((ec ? root : canonical).string());
    return "varnel-" + QCryptographicHash::hash(key, QCryptographicHash::Sha1).toHex().left(20);
}

bool InstanceChannel::handOver(const QString& name, const QString& archive) {
    QLocalSocket socket;
    // The first instance listens right after taking the lock; give it a moment to get there.
    for (int attempt = 0; attempt < 10; ++attempt) {
        socket.connectToServer(name);
        if (socket.waitForConnected(2000))
            break;
        QThread::msleep(100);
    }
    if (socket.state() != QLocalSocket::ConnectedState)
        return false;
    socket.write(archive.isEmpty()
                     ? QByteArray("activate\n")
                     : "open " + QFileInfo(archive).absoluteFilePath().toUtf8() + "\n");
    return socket.waitForBytesWritten(2000);
}

InstanceChannel::InstanceChannel(QObject* parent) : QObject(parent) {
    connect(&server_, &QLocalServer::newConnection, this, &InstanceChannel::welcome);
}

bool InstanceChannel::listen(const QString& name) {
    QLocalServer::removeServer(name);
    return server_.listen(name);
}

void InstanceChannel::welcome() {
    while (QLocalSocket* peer = server_.nextPendingConnection()) {
        connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
        connect(peer, &QLocalSocket::readyRead, this, [this, peer] { answer(peer); });
        answer(peer);
    }
}

void InstanceChannel::answer(QLocalSocket* peer) {
    // Answered from the event loop: an import asks the user first, and the peer may be gone
    // by the time the question is answered.
    while (peer->canReadLine()) {
        const QString line = QString::fromUtf8(peer->readLine()).trimmed();
        QMetaObject::invokeMethod(
            this,
            [this, line] {
                if (line.startsWith("open ") && line.size() > 5)
                    emit importRequested(line.mid(5));
                else
                    emit activationRequested();
            },
            Qt::QueuedConnection);
    }
}

} // namespace varnel
