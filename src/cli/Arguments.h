#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tapekeep::cli {

// The words after a command, read one option or operand at a time. Options may come before,
// between or after operands; "--name=value" and "--name value" are both accepted.
class Arguments {
public:
    explicit Arguments(std::vector<std::string> words) : words_(std::move(words)) {}

    // Removes the flag wherever it stands; true when it was there.
    bool takeFlag(const std::string& name);
    // Removes the option and its value; throws UsageError when the value is missing.
    std::optional<std::string> takeValue(const std::string& name);
    std::vector<std::string> takeValues(const std::string& name);  // may be repeated
    // What is left once every option was taken; throws UsageError on an unknown option.
    std::vector<std::string> operands(std::size_t minimum, std::size_t maximum,
                                      const std::string& usage) const;

private:
    std::vector<std::string> words_;
};

int parseCount(const std::string& text, const std::string& option);

}  // namespace tapekeep::cli
