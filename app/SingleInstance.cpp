#include "app/SingleInstance.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QLocalSocket>
#include <thread>
#include <utility>

#include "app/QtText.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"

namespace zepho {
namespace {

// The first may still be reading a large cache; one that hangs must not hold the second for ever.
constexpr int answerPatienceMs = 20000;
constexpr std::chrono::milliseconds betweenTries(50);
constexpr char wish[] = "show\n";
constexpr char consent[] = "shown\n";

// Sockets' names are short; the data root may be long, and is the user's own.
QString socketName() {
    const QByteArray root = QByteArray::fromStdString(ZEPHOPaths::dataRoot());
    const QByteArray digest = QCryptographicHash::hash(root, QCryptographicHash::Sha256).toHex();
    return "zephon-" + QString::fromLatin1(digest.left(16));
}

}  // namespace

SingleInstance::SingleInstance()
    : lock([] {
          ZEPHOPaths::ensureDirectories();
          return std::make_unique<InstanceLock>(ZEPHOPaths::dataRoot() + "zephon.lock");
      }()) {}

bool SingleInstance::askToShow(std::chrono::milliseconds patience) const {
    const QDeadlineTimer end(patience);
    QLocalSocket socket;
    // Between its lock and its socket the first has a moment in which it has only one of them.
    while (true) {
        socket.connectToServer(socketName());
        if (socket.waitForConnected(static_cast<int>(end.remainingTime()))) break;
        if (end.hasExpired()) return false;
        std::this_thread::sleep_for(betweenTries);
    }
    socket.write(wish);
    return socket.waitForReadyRead(answerPatienceMs) && socket.readAll() == consent;
}

void SingleInstance::listen() {
    // The socket of a program that was killed is still there; the lock says that it is nobody's.
    QLocalServer::removeServer(socketName());
    server.setSocketOptions(QLocalServer::UserAccessOption);
    QObject::connect(&server, &QLocalServer::newConnection, &server, [this] {
        while (QLocalSocket* const caller = server.nextPendingConnection()) greet(caller);
    });
    if (!server.listen(socketName()))
        AppLog::warn("ui",
                     "a second start cannot reach this window: " + fromQt(server.errorString()));
}

void SingleInstance::greet(QLocalSocket* caller) {
    QObject::connect(caller, &QLocalSocket::disconnected, caller, &QObject::deleteLater);
    QObject::connect(caller, &QLocalSocket::readyRead, caller, [this, caller] {
        if (!caller->canReadLine() || caller->readLine() != wish) return;
        caller->write(consent);
        caller->flush();
        grant();
    });
}

void SingleInstance::grant() {
    if (bringUp)
        bringUp();
    else
        wished = true;
}

void SingleInstance::showBy(std::function<void()> show) {
    bringUp = std::move(show);
    if (std::exchange(wished, false)) bringUp();
}

}  // namespace zepho
