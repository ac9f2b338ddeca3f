#include "backup/ProgressLineParser.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>

namespace tapekeep {
namespace {

// The smallest byte count that no longer fits a signed 64-bit integer once read as a double.
constexpr double byteCountLimit = 9.223372036854776e18;

// Digits accumulated exactly as an integer before the value could pass 2^53.
constexpr std::size_t exactDigitLimit = 15;

// Character classes as lambdas, so that each scanning loop is compiled with its test inline.
constexpr auto isSpace = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
constexpr auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
constexpr auto isDigitOrComma = [](char c) { return isDigit(c) || c == ','; };
constexpr auto isRateCharacter = [](char c) { return isDigit(c) || c == '.' || c == ','; };

// A forward-only cursor over one line; every take* either consumes what it names or nothing.
class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    [[nodiscard]] bool atEnd() const { return position_ == text_.size(); }
    [[nodiscard]] char peek() const { return atEnd() ? '\0' : text_[position_]; }

    std::size_t skipSpaces() { return takeWhile(isSpace).size(); }

    template <typename Predicate>
    std::string_view takeWhile(Predicate predicate) {
        const std::size_t start = position_;
        while (position_ < text_.size() && predicate(text_[position_])) ++position_;
        return text_.substr(start, position_ - start);
    }

    std::string_view takeDigits() { return takeWhile(isDigit); }

    bool take(char expected) {
        if (atEnd() || text_[position_] != expected) return false;
        ++position_;
        return true;
    }

    bool take(std::string_view literal) {
        if (text_.substr(position_, literal.size()) != literal) return false;
        position_ += literal.size();
        return true;
    }

    // Takes one character of `set`, returning it, or returns '\0' and takes nothing.
    char takeOneOf(std::string_view set) {
        if (atEnd() || set.find(text_[position_]) == std::string_view::npos) return '\0';
        return text_[position_++];
    }

    // Exactly `count` digits, or nothing.
    bool takeDigits(std::size_t count) {
        if (text_.size() - position_ < count) return false;
        for (std::size_t i = 0; i < count; ++i)
            if (!isDigit(text_[position_ + i])) return false;
        position_ += count;
        return true;
    }

private:
    std::string_view text_;
    std::size_t position_ = 0;
};

// The digits of a number of the parenthesis, or absent when they do not fit 64 bits.
std::optional<std::int64_t> readCount(std::string_view digits) {
    std::int64_t value = 0;
    for (char digit : digits) {
        if (__builtin_mul_overflow(value, 10, &value) || __builtin_add_overflow(value, digit - '0', &value))
            return std::nullopt;
    }
    return value;
}

double decimalFactor(char suffix) {
    switch (suffix) {
        case 'K':
            return 1e3;
        case 'M':
            return 1e6;
        case 'G':
            return 1e9;
        case 'T':
            return 1e12;
        case 'P':
            return 1e15;
        default:
            return 1.0;
    }
}

// Reads "[\d,]+" with an optional fraction as a double, the commas removed. Absent when there is
// no digit at all or the value overflows.
std::optional<double> readGroupedNumber(std::string_view grouped, std::string_view fraction) {
    std::size_t digitCount = 0;
    std::uint64_t exact = 0;
    for (char c : grouped) {
        if (c == ',') continue;
        ++digitCount;
        if (digitCount <= exactDigitLimit) exact = exact * 10 + static_cast<std::uint64_t>(c - '0');
    }
    if (fraction.empty() && digitCount <= exactDigitLimit) {
        if (digitCount == 0) return std::nullopt;  // commas only
        return static_cast<double>(exact);
    }
    std::string digits = "0";  // so that ".5" reads as a number
    for (char c : grouped)
        if (c != ',') digits += c;
    if (!fraction.empty()) (digits += '.') += fraction;
    double value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc::result_out_of_range) {
        // Too large to be finite, or too small to be anything but zero.
        const bool tooLarge = digits.find_first_of("123456789") < digits.find('.');
        return tooLarge ? std::nullopt : std::optional<double>(0.0);
    }
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return value;
}

// "([\d,]+(?:\.\d+)?)([KMGTP]?)" followed by white space, as a whole byte count.
std::optional<std::int64_t> takeTransferredBytes(Scanner& scanner) {
    const std::string_view grouped = scanner.takeWhile(isDigitOrComma);
    if (grouped.empty()) return std::nullopt;
    std::string_view fraction;
    if (scanner.peek() == '.') {
        Scanner afterPoint = scanner;
        afterPoint.take('.');
        fraction = afterPoint.takeDigits();
        if (!fraction.empty()) scanner = afterPoint;
    }
    const char suffix = scanner.takeOneOf("KMGTP");
    if (scanner.skipSpaces() == 0) return std::nullopt;
    const auto number = readGroupedNumber(grouped, fraction);
    if (!number) return std::nullopt;
    const double bytes = *number * decimalFactor(suffix);
    if (!(bytes >= 0) || !std::isfinite(bytes) || bytes >= byteCountLimit) return std::nullopt;
    return static_cast<std::int64_t>(bytes);
}

// "(\d{1,3})%" followed by white space; absent above 100.
std::optional<int> takePercent(Scanner& scanner) {
    const std::string_view digits = scanner.takeDigits();
    if (digits.empty() || digits.size() > 3 || !scanner.take('%') || scanner.skipSpaces() == 0)
        return std::nullopt;
    int percent = 0;
    for (char digit : digits) percent = percent * 10 + (digit - '0');
    if (percent > 100) return std::nullopt;
    return percent;
}

// "[\d.,]+[kKMGTP]?B\/s" followed by white space; the rate itself is not kept.
bool takeRate(Scanner& scanner) {
    if (scanner.takeWhile(isRateCharacter).empty()) return false;
    scanner.takeOneOf("kKMGTP");
    return scanner.take("B/s") && scanner.skipSpaces() > 0;
}

// "\d+:\d{2}:\d{2}" or "??:??:??".
bool takeTime(Scanner& scanner) {
    if (scanner.take("??:??:??")) return true;
    return !scanner.takeDigits().empty() && scanner.take(':') && scanner.takeDigits(2) && scanner.take(':') &&
           scanner.takeDigits(2);
}

// "\(xfr#(\d+),\s+(ir|to)-chk=(\d+)\/(\d+)\)".
bool takeCheckGroup(Scanner& scanner, TransferProgressLine& line) {
    if (!scanner.take("(xfr#")) return false;
    const std::string_view transferred = scanner.takeDigits();
    if (transferred.empty() || !scanner.take(',') || scanner.skipSpaces() == 0) return false;
    if (scanner.take("ir-chk=")) {
        line.checkKind = TransferProgressLine::CheckKind::ir;
    } else if (scanner.take("to-chk=")) {
        line.checkKind = TransferProgressLine::CheckKind::to;
    } else {
        return false;
    }
    const std::string_view remaining = scanner.takeDigits();
    if (remaining.empty() || !scanner.take('/')) return false;
    const std::string_view total = scanner.takeDigits();
    if (total.empty() || !scanner.take(')')) return false;
    line.transferredFiles = readCount(transferred);
    line.remaining = readCount(remaining);
    line.total = readCount(total);
    return true;
}

// What may follow the time: the optional parenthesis, then only white space.
bool takeTail(Scanner& scanner, TransferProgressLine& line) {
    const bool spaced = scanner.skipSpaces() > 0;
    if (spaced && scanner.peek() == '(') {
        if (!takeCheckGroup(scanner, line)) return false;
        scanner.skipSpaces();
    }
    return scanner.atEnd();
}

bool containsCheckMarker(std::string_view line) {
    constexpr std::string_view marker = "-chk=";
    for (std::size_t at = line.find(marker, 2); at != std::string_view::npos;
         at = line.find(marker, at + 1)) {
        const std::string_view kind = line.substr(at - 2, 2);
        if (kind == "ir" || kind == "to") return true;
    }
    return false;
}

// "^\s*[\d.,]+[KMGTP]?\s+\d{1,3}%\s".
bool beginsLikeProgress(std::string_view line) {
    Scanner scanner(line);
    scanner.skipSpaces();
    if (scanner.takeWhile(isRateCharacter).empty()) return false;
    scanner.takeOneOf("KMGTP");
    if (scanner.skipSpaces() == 0) return false;
    const std::size_t digits = scanner.takeDigits().size();
    return digits >= 1 && digits <= 3 && scanner.take('%') && isSpace(scanner.peek());
}

}  // namespace

std::optional<TransferProgressLine> parseProgressLine(std::string_view text) {
    Scanner scanner(text);
    scanner.skipSpaces();
    TransferProgressLine line;
    const auto bytes = takeTransferredBytes(scanner);
    if (!bytes) return std::nullopt;
    const auto percent = takePercent(scanner);
    if (!percent || !takeRate(scanner) || !takeTime(scanner) || !takeTail(scanner, line)) return std::nullopt;
    line.transferredBytes = *bytes;
    line.percent = *percent;
    return line;
}

bool isProgressNoise(std::string_view line) {
    return containsCheckMarker(line) || beginsLikeProgress(line);
}

}  // namespace tapekeep
