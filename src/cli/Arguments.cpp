#include "cli/Arguments.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "cli/CliError.h"

namespace tapekeep::cli {

Arguments::Arguments(std::vector<std::string> words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    if (end != words.end()) afterOptions_.assign(end + 1, words.end());
    words.erase(end, words.end());
    words_ = std::move(words);
}

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

std::vector<std::string> Arguments::takeList(const std::string& name) {
    std::vector<std::string> items;
    const auto text = takeValue(name);
    if (!text) return items;
    std::size_t start = 0;
    while (start <= text->size()) {
        const std::size_t end = std::min(text->find(',', start), text->size());
        if (end > start) items.push_back(text->substr(start, end - start));
        start = end + 1;
    }
    return items;
}

std::vector<std::string> Arguments::operands(std::size_t minimum, std::size_t maximum,
                                             const std::string& usage) const {
    for (const auto& word : words_)
        if (word.size() > 1 && word[0] == '-')
            throw UsageError("Unknown option " + word + ". Usage: " + usage);
    std::vector<std::string> all = words_;
    all.insert(all.end(), afterOptions_.begin(), afterOptions_.end());
    if (all.size() < minimum || all.size() > maximum) throw UsageError("Usage: " + usage);
    return all;
}

int parseCount(const std::string& text, const std::string& option, int minimum) {
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < minimum) {
        const std::string wanted =
            minimum == 0 ? "a whole number" : "a whole number of at least " + std::to_string(minimum);
        throw UsageError(option + " takes " + wanted + ", not \"" + text + "\".");
    }
    return value;
}

std::optional<double> takeSeconds(Arguments& arguments, const std::string& option) {
    const auto text = arguments.takeValue(option);
    if (!text) return std::nullopt;
    double seconds = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), seconds);
    if (error != std::errc() || end != text->data() + text->size() || !std::isfinite(seconds))
        throw UsageError(option + " takes a number of seconds, not \"" + *text + "\".");
    return seconds;
}

double requiredSeconds(const std::optional<double>& seconds, const std::string& option,
                       const std::string& usage) {
    if (!seconds) throw UsageError(option + " is required. Usage: " + usage);
    return *seconds;
}

}  // namespace tapekeep::cli
