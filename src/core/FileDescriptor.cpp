#include "core/FileDescriptor.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "core/PosixError.h"

namespace tapekeep {

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        reset();
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

FileDescriptor::~FileDescriptor() {
    reset();
}

FileDescriptor FileDescriptor::checked(int fd, const std::string& context) {
    if (fd < 0) throw PosixError::fromErrno(errno, context);
    return FileDescriptor(fd);
}

void FileDescriptor::reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

}  // namespace tapekeep
