#pragma once

#include <QObject>
#include <QProcessEnvironment>

#include <filesystem>
#include <memory>
#include <optional>

#include "core/FileLock.h"

class QLocalServer;
class QLocalSocket;

namespace tapekeep {

// Keeps one copy of the desktop application running per user. The running copy holds an flock on
// `app.lock` in the user's private runtime folder for as long as it lives, and listens on the local
// socket `app.socket` beside it. A later copy finds the lock taken, asks the running one over the
// socket to come forward, and ends. The lock decides, not the socket: of two copies that start
// together only one can hold it, so exactly one survives. GUI thread only.
class SingleInstanceGuard : public QObject {
    Q_OBJECT

public:
    static constexpr const char* exemptionVariable = "TAPEKEEP_ALLOW_MULTIPLE_INSTANCES";
    // What a later copy sends, one line; the running copy answers "ok".
    static constexpr const char* activateMessage = "org.tapekeep.backup.activate";

    // True when TAPEKEEP_ALLOW_MULTIPLE_INSTANCES is exactly "1" (tests, side-by-side runs).
    static bool isExempt(const QProcessEnvironment& environment);

    // ${XDG_RUNTIME_DIR:-/tmp}/tapekeep-<uid>, the folder of the card locks too.
    static std::filesystem::path defaultFolder();

    // The guard of a process that may go on: it holds the lock, or it is exempt and holds nothing.
    // Null when another copy runs: that copy has been asked to come forward, and this process should
    // end with status 0 without showing a window. Throws PosixError when the folder is unusable.
    // Needs a QCoreApplication.
    static std::unique_ptr<SingleInstanceGuard> enforce(
        const QProcessEnvironment& environment, const std::filesystem::path& folder = defaultFolder());

    ~SingleInstanceGuard() override;

    [[nodiscard]] bool holdsLock() const { return lock_.has_value(); }

signals:
    // Another copy asked this one to bring its window forward.
    void activateRequested();

private:
    SingleInstanceGuard(std::optional<FileLock> lock, const std::filesystem::path& folder);
    void listen(const std::filesystem::path& socketPath);
    void acceptConnections();
    void answer(QLocalSocket* socket);

    std::optional<FileLock> lock_;
    QLocalServer* server_ = nullptr;  // child of this object; only while the lock is held
};

}  // namespace tapekeep
