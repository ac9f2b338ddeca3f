#include "core/NaturalOrder.h"

#include <utf8proc.h>

#include <cstdlib>
#include <memory>

namespace tapekeep {
namespace {

// NFC with case folding, so "É" and "é" (composed or not) compare equal.
std::string folded(const std::string& text) {
    utf8proc_uint8_t* output = nullptr;
    const auto options =
        static_cast<utf8proc_option_t>(UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD | UTF8PROC_STABLE);
    auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                               static_cast<utf8proc_ssize_t>(text.size()), &output, options);
    if (length < 0) return text;  // not valid UTF-8: compare the bytes as they are
    std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(output, &std::free);
    return std::string(reinterpret_cast<const char*>(output), static_cast<std::size_t>(length));
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int compareDigitRuns(const std::string& a, std::size_t& i, const std::string& b, std::size_t& j) {
    while (i < a.size() && a[i] == '0' && i + 1 < a.size() && isDigit(a[i + 1])) ++i;
    while (j < b.size() && b[j] == '0' && j + 1 < b.size() && isDigit(b[j + 1])) ++j;
    std::size_t endA = i, endB = j;
    while (endA < a.size() && isDigit(a[endA])) ++endA;
    while (endB < b.size() && isDigit(b[endB])) ++endB;
    const std::size_t lengthA = endA - i, lengthB = endB - j;
    int result = lengthA < lengthB ? -1 : lengthA > lengthB ? 1 : a.compare(i, lengthA, b, j, lengthB);
    i = endA;
    j = endB;
    return result;
}

}  // namespace

int naturalCompare(const std::string& left, const std::string& right) {
    const std::string a = folded(left), b = folded(right);
    std::size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            if (int result = compareDigitRuns(a, i, b, j); result != 0) return result;
            continue;
        }
        const auto ca = static_cast<unsigned char>(a[i]), cb = static_cast<unsigned char>(b[j]);
        if (ca != cb) return ca < cb ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < a.size()) return 1;
    if (j < b.size()) return -1;
    return left.compare(right) < 0 ? -1 : left.compare(right) > 0 ? 1 : 0;  // stable tie-break
}

}  // namespace tapekeep
