#include "app/SingleInstance.h"

#include <QCryptographicHash>
#include <QLocalSocket>
#include <utility>

#include "app/QtText.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"

namespace zepho {
namespace {

constexpr int patienceMs = 2000;
constexpr char wish[] = "show\n";
constexpr char consent[] = "shown\n";

// Sockets' names are short; the data root may be long, and is the user's own.
QString socketName() {
    const QByteArray root = QByteArray::fromStdString(ZEPHOPaths::dataRoot());
    const QByteArray digest = QCryptographicHash::hash(root, QCryptographicHash::Sha256).toHex();
    return "zephon-" + QString::fromLatin1(digest.left(16));
}

}  // namespace

SingleInstance::SingleInstance() {
    ZEPHOPaths::ensureDirectories();
    lock = std::make_unique<InstanceLock>(ZEPHOPaths::dataRoot() + "zephon.lock");
}

bool SingleInstance::askToShow() const {
    QLocalSocket socket;
    socket.connectToServer(socketName());
    if (!socket.waitForConnected(patienceMs)) return false;
    socket.write(wish);
    return socket.waitForReadyRead(patienceMs) && socket.readAll() == consent;
}

void SingleInstance::listen(std::function<void()> show) {
    // The socket of a program that was killed is still there; the lock says that it is nobody's.
    QLocalServer::removeServer(socketName());
    server.setSocketOptions(QLocalServer::UserAccessOption);
    QObject::connect(
        &server, &QLocalServer::newConnection, &server, [this, show = std::move(show)] {
            while (QLocalSocket* const caller = server.nextPendingConnection()) {
                QObject::connect(caller, &QLocalSocket::disconnected, caller,
                                 &QObject::deleteLater);
                QObject::connect(caller, &QLocalSocket::readyRead, caller, [caller, show] {
                    if (!caller->canReadLine() || caller->readLine() != wish) return;
                    caller->write(consent);
                    caller->flush();
                    show();
                });
            }
        });
    if (!server.listen(socketName()))
        AppLog::warn("ui",
                     "a second start cannot reach this window: " + fromQt(server.errorString()));
}

}  // namespace zepho
