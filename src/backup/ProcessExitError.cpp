#include "backup/ProcessExitError.h"

#include <string_view>

namespace tapekeep {
namespace {

std::string_view trimBlanksAndNewlines(std::string_view text) {
    constexpr std::string_view blanks = " \t\n\r\v\f";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string exitText(int status, const std::string& output) {
    return "Process exited with status " + std::to_string(status) + ": " +
           std::string(trimBlanksAndNewlines(output));
}

}  // namespace

ProcessExitError::ProcessExitError(int status, std::string output)
    : Error(exitText(status, output)), status_(status), output_(std::move(output)) {}

}  // namespace tapekeep
