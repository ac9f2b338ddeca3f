#pragma once

#include <stdexcept>
#include <string>

namespace tapekeep {

// Base of every closed set of errors: what() and description() both yield the text the user reads.
// Cancellation deliberately does not derive from this (see Cancelled.h).
class Error : public std::runtime_error {
public:
    explicit Error(const std::string& text) : std::runtime_error(text) {}
    [[nodiscard]] std::string description() const { return what(); }
};

// The description of any exception, as the user should read it.
std::string describe(const std::exception& error);
std::string describe(std::exception_ptr error);

}  // namespace tapekeep
