#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tapekeep::cli {

// The words after a command, read one option or operand at a time. Options may come before,
// between or after operands; "--name=value" and "--name value" are both accepted. A "--" ends the
// options: every word after it is an operand, so that a set or file named "-rf" can be named.
class Arguments {
public:
    explicit Arguments(std::vector<std::string> words);

    // Removes the flag wherever it stands; true when it was there.
    bool takeFlag(const std::string& name);
    // Removes the option and its value; throws UsageError when the value is missing.
    std::optional<std::string> takeValue(const std::string& name);
    std::vector<std::string> takeValues(const std::string& name);  // may be repeated
    // Removes the option and splits its value at ","; empty pieces are dropped.
    std::vector<std::string> takeList(const std::string& name);
    // What is left once every option was taken; throws UsageError on an unknown option.
    std::vector<std::string> operands(std::size_t minimum, std::size_t maximum,
                                      const std::string& usage) const;

private:
    std::vector<std::string> words_;         // before "--": options and operands
    std::vector<std::string> afterOptions_;  // after "--": operands only
};

// A whole decimal number not below `minimum`; throws UsageError naming the option otherwise.
int parseCount(const std::string& text, const std::string& option, int minimum = 0);

// Takes an option holding a finite number of seconds; nothing when it is absent. Throws UsageError
// naming the option when its value is not such a number.
std::optional<double> takeSeconds(Arguments& arguments, const std::string& option);
// The same for an option that must be given; the usage is quoted when it is missing.
double requiredSeconds(const std::optional<double>& seconds, const std::string& option,
                       const std::string& usage);

}  // namespace tapekeep::cli
