#include "core/PosixError.h"

#include <cstring>

namespace tapekeep {

std::string errnoText(int code) {
    char buffer[256];
    return ::strerror_r(code, buffer, sizeof buffer);
}

PosixError PosixError::fromErrno(int code, const std::string& context) {
    std::string text = errnoText(code);
    return PosixError(code, context.empty() ? text : context + ": " + text);
}

}  // namespace tapekeep
