#include "app/SingleInstanceGuard.h"

#include <fcntl.h>
#include <unistd.h>

#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>

#include <chrono>

#include "cards/CardLockFile.h"
#include "core/Log.h"
#include "platform/PrivateFolder.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

const Log log("SingleInstanceGuard");

constexpr const char* lockFileName = "app.lock";
constexpr const char* socketFileName = "app.socket";
constexpr const char* acknowledgement = "ok";

// How long a later copy keeps trying to reach the running one: that copy may hold the lock but not
// listen yet, because it is still starting.
constexpr auto reachLimit = 10s;
constexpr int connectWaitMs = 500;
constexpr int replyWaitMs = 2000;

// The lock when no other process holds it. The descriptor is closed on exec, so that no child
// (an rsync) keeps the lock after this process has gone.
std::optional<FileLock> tryTakingLock(const fs::path& folder) {
    const FileDescriptor directory = openPrivateFolder(folder);
    const fs::path path = folder / lockFileName;
    FileDescriptor file = FileDescriptor::checked(
        ::openat(directory.get(), lockFileName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600),
        path.string());
    return FileLock::tryLocking(file, path.string());
}

// True once the running copy has confirmed the request; false when no one answered on the socket.
bool askToComeForward(const fs::path& socketPath) {
    QLocalSocket socket;
    socket.connectToServer(QString::fromStdString(socketPath.string()));
    if (!socket.waitForConnected(connectWaitMs)) return false;
    socket.write(QByteArray(SingleInstanceGuard::activateMessage) + '\n');
    if (!socket.waitForBytesWritten(replyWaitMs)) return false;
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(replyWaitMs)) return false;
    }
    return socket.readLine().trimmed() == acknowledgement;
}

}  // namespace

bool SingleInstanceGuard::isExempt(const QProcessEnvironment& environment) {
    return environment.value(QString::fromLatin1(exemptionVariable)) == QStringLiteral("1");
}

fs::path SingleInstanceGuard::defaultFolder() {
    return CardLockFile::defaultFolder();
}

// Either this process takes the lock, or the holder answers, or (when the holder neither answers
// nor lets go within the limit) this process gives way all the same: a copy holds the lock and is
// alive, and two windows are what the guard is for.
std::unique_ptr<SingleInstanceGuard> SingleInstanceGuard::enforce(const QProcessEnvironment& environment,
                                                                  const fs::path& folder) {
    if (isExempt(environment))
        return std::unique_ptr<SingleInstanceGuard>(new SingleInstanceGuard(std::nullopt, folder));
    const auto giveUp = Clock::now() + reachLimit;
    while (true) {
        if (auto lock = tryTakingLock(folder))
            return std::unique_ptr<SingleInstanceGuard>(new SingleInstanceGuard(std::move(lock), folder));
        if (askToComeForward(folder / socketFileName)) return nullptr;
        if (Clock::now() > giveUp) {
            log.error("Another copy holds the lock but did not answer");
            return nullptr;
        }
        QThread::msleep(20);
    }
}

SingleInstanceGuard::SingleInstanceGuard(std::optional<FileLock> lock, const fs::path& folder)
    : lock_(std::move(lock)) {
    if (lock_) listen(folder / socketFileName);
}

SingleInstanceGuard::~SingleInstanceGuard() {
    if (server_) server_->close();  // the socket file goes before the lock is let go
}

// A socket file left by a copy that died is stale: whoever holds the lock may replace it.
void SingleInstanceGuard::listen(const fs::path& socketPath) {
    const QString name = QString::fromStdString(socketPath.string());
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    QLocalServer::removeServer(name);
    if (!server_->listen(name)) {
        log.error("Cannot listen on " + socketPath.string() + ": " + server_->errorString().toStdString());
        return;
    }
    connect(server_, &QLocalServer::newConnection, this, &SingleInstanceGuard::acceptConnections);
}

void SingleInstanceGuard::acceptConnections() {
    while (QLocalSocket* socket = server_->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { answer(socket); });
        answer(socket);  // what arrived before the connection was made
    }
}

void SingleInstanceGuard::answer(QLocalSocket* socket) {
    while (socket->canReadLine()) {
        if (socket->readLine().trimmed() != activateMessage) continue;
        socket->write(QByteArray(acknowledgement) + '\n');
        socket->flush();
        emit activateRequested();
    }
}

}  // namespace tapekeep
