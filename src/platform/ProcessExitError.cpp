#include "platform/ProcessExitError.h"

#include "core/Utf8.h"

namespace tapekeep {
namespace {

std::string exitText(int status, const std::string& output) {
    return "Process exited with status " + std::to_string(status) + ": " +
           std::string(trimmedAsciiWhitespace(output));
}

}  // namespace

ProcessExitError::ProcessExitError(int status, std::string output)
    : Error(exitText(status, output)), status_(status), output_(std::move(output)) {}

}  // namespace tapekeep
