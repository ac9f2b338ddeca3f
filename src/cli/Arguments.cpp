#include "cli/Arguments.h"

#include <charconv>

#include "cli/CliError.h"

namespace tapekeep::cli {

bool Arguments::takeFlag(const std::string& name) {
    bool found = false;
    std::erase_if(words_, [&](const std::string& word) { return word == name && (found = true); });
    return found;
}

std::optional<std::string> Arguments::takeValue(const std::string& name) {
    auto values = takeValues(name);
    if (values.size() > 1) throw UsageError(name + " may be given only once.");
    if (values.empty()) return std::nullopt;
    return values.front();
}

std::vector<std::string> Arguments::takeValues(const std::string& name) {
    std::vector<std::string> values, rest;
    for (std::size_t i = 0; i < words_.size(); ++i) {
        const std::string& word = words_[i];
        if (word == name) {
            if (i + 1 >= words_.size()) throw UsageError(name + " needs a value.");
            values.push_back(words_[++i]);
        } else if (word.starts_with(name + "=")) {
            values.push_back(word.substr(name.size() + 1));
        } else {
            rest.push_back(word);
        }
    }
    words_ = std::move(rest);
    return values;
}

std::vector<std::string> Arguments::operands(std::size_t minimum, std::size_t maximum,
                                             const std::string& usage) const {
    for (const auto& word : words_)
        if (word.size() > 1 && word[0] == '-')
            throw UsageError("Unknown option " + word + ". Usage: " + usage);
    if (words_.size() < minimum || words_.size() > maximum) throw UsageError("Usage: " + usage);
    return words_;
}

int parseCount(const std::string& text, const std::string& option) {
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0)
        throw UsageError(option + " takes a whole number, not \"" + text + "\".");
    return value;
}

}  // namespace tapekeep::cli
