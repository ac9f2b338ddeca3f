#include "content/SearchFolding.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "core/Utf8.h"

namespace tapekeep {

namespace {

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string unicodeFolded(const std::string& text) {
    utf8proc_uint8_t* output = nullptr;
    const auto options = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE |
                                                        UTF8PROC_CASEFOLD | UTF8PROC_STRIPMARK);
    const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                     static_cast<utf8proc_ssize_t>(text.size()), &output, options);
    if (length < 0) return text;
    std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(output, &std::free);
    return std::string(reinterpret_cast<const char*>(output), static_cast<std::size_t>(length));
}

// Space, tab to carriage return, NEL, no-break space, and the Unicode space and line separators.
std::size_t whiteSpaceLength(std::string_view text, std::size_t at) {
    const auto c = static_cast<unsigned char>(text[at]);
    if (c == ' ' || (c >= '\t' && c <= '\r')) return 1;
    if (c < 0x80) return 0;
    utf8proc_int32_t codePoint = -1;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + at),
                                         static_cast<utf8proc_ssize_t>(text.size() - at), &codePoint);
    if (length <= 0) return 0;
    const auto category = utf8proc_category(codePoint);
    const bool blank = codePoint == 0x85 || category == UTF8PROC_CATEGORY_ZS ||
                       category == UTF8PROC_CATEGORY_ZL || category == UTF8PROC_CATEGORY_ZP;
    return blank ? static_cast<std::size_t>(length) : 0;
}

}  // namespace

std::string foldedForSearch(std::string_view text) {
    if (isAscii(text)) {
        std::string folded(text);
        std::transform(folded.begin(), folded.end(), folded.begin(),
                       [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
        return folded;
    }
    return unicodeFolded(repairUtf8(text));
}

std::vector<std::string> searchTokens(std::string_view query) {
    std::vector<std::string> tokens;
    std::size_t start = 0;
    const auto endPiece = [&](std::size_t end) {
        if (end > start) tokens.push_back(foldedForSearch(query.substr(start, end - start)));
    };
    for (std::size_t at = 0; at < query.size();) {
        const std::size_t separator = query[at] == '/' ? 1 : whiteSpaceLength(query, at);
        if (separator == 0) {
            ++at;
            continue;
        }
        endPiece(at);
        at += separator;
        start = at;
    }
    endPiece(query.size());
    return tokens;
}

}  // namespace tapekeep
