#pragma once

#include <string>

#include "core/Error.h"

namespace tapekeep {

// A program that ran but ended with a status its caller cannot accept. Text: "Process exited
// with status {status}: {output}", with the output trimmed of blanks and newlines.
class ProcessExitError : public Error {
public:
    ProcessExitError(int status, std::string output);

    [[nodiscard]] int status() const { return status_; }
    [[nodiscard]] const std::string& output() const { return output_; }

private:
    int status_;
    std::string output_;  // as the process printed it, untrimmed
};

}  // namespace tapekeep
