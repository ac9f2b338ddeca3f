#include "core/Formatting.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace tapekeep {

std::string formatByteCount(std::int64_t bytes) {
    if (bytes == 0) return "Zero KB";
    const bool negative = bytes < 0;
    const double magnitude = negative ? -static_cast<double>(bytes) : static_cast<double>(bytes);
    const std::string sign = negative ? "-" : "";
    if (magnitude < 1000)
        return sign + std::to_string(std::llabs(bytes)) + (magnitude == 1 ? " byte" : " bytes");
    struct Unit {
        const char* name;
        double size;
        int decimals;
    };
    constexpr std::array<Unit, 5> units{
        {{"KB", 1e3, 0}, {"MB", 1e6, 1}, {"GB", 1e9, 2}, {"TB", 1e12, 2}, {"PB", 1e15, 2}}};
    std::size_t index = 0;
    while (index + 1 < units.size() && magnitude >= units[index + 1].size * 0.9995) ++index;
    const Unit& unit = units[index];
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", unit.decimals, magnitude / unit.size);
    std::string number = text;
    if (number.find('.') != std::string::npos) {  // "1.50" -> "1.5", "2.00" -> "2"
        while (number.back() == '0') number.pop_back();
        if (number.back() == '.') number.pop_back();
    }
    return sign + number + " " + unit.name;
}

std::string formatWithThousandsSeparator(std::int64_t value) {
    const bool negative = value < 0;
    std::string digits = std::to_string(value);
    if (negative) digits.erase(0, 1);
    std::string grouped;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) grouped += ',';
        grouped += digits[i];
    }
    return negative ? "-" + grouped : grouped;
}

std::string formatElapsed(std::int64_t seconds) {
    seconds = std::max<std::int64_t>(seconds, 0);
    const long long hours = seconds / 3600, minutes = (seconds % 3600) / 60, rest = seconds % 60;
    char text[32];
    if (hours > 0)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", hours, minutes, rest);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", minutes, rest);
    return text;
}

}  // namespace tapekeep
