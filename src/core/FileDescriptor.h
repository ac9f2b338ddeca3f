#pragma once

#include <string>

namespace tapekeep {

// Owns one open file descriptor and closes it once. Closing is never retried: after EINTR the
// descriptor is gone all the same, and a second close could hit one that another thread has just
// been given. Movable, not copyable; an owner is used from one thread at a time.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    // Owns what a system call just returned; throws PosixError "{context}: {errno text}" when that
    // call failed with a negative result.
    static FileDescriptor checked(int fd, const std::string& context);

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool isOpen() const { return fd_ >= 0; }
    void reset();  // closes now; afterwards nothing is owned

private:
    int fd_ = -1;
};

}  // namespace tapekeep
