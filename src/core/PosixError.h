#pragma once

#include <string>

#include "core/Error.h"

namespace tapekeep {

// A failed system call: the errno and the platform's text for it.
class PosixError : public Error {
public:
    PosixError(int code, const std::string& text) : Error(text), code_(code) {}
    [[nodiscard]] int code() const { return code_; }

    // "{context}: {strerror}" for the current errno, or just the strerror text without context.
    static PosixError fromErrno(int code, const std::string& context = {});

private:
    int code_;
};

std::string errnoText(int code);

}  // namespace tapekeep
