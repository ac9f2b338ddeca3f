#include "backup/RsyncVersion.h"

#include <utf8proc.h>

#include <charconv>
#include <optional>
#include <regex>

#include "backup/RsyncError.h"
#include "backup/RsyncFinder.h"
#include "backup/RsyncProcess.h"
#include "core/PosixError.h"
#include "platform/ProcessRunner.h"

namespace tapekeep {
namespace {

constexpr std::size_t rawLength = 200;
constexpr std::size_t descriptionRawLength = 40;

// The first count user-perceived characters (grapheme clusters) of text. A byte that is not
// UTF-8 counts as one character of its own.
std::string prefixCharacters(const std::string& text, std::size_t count) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    utf8proc_int32_t state = 0;
    utf8proc_int32_t previous = -1;
    std::size_t characters = 0;
    std::size_t index = 0;
    while (index < text.size()) {
        utf8proc_int32_t codepoint = 0;
        utf8proc_ssize_t length =
            utf8proc_iterate(bytes + index, static_cast<utf8proc_ssize_t>(text.size() - index), &codepoint);
        if (length <= 0) {
            codepoint = 0xFFFD;
            length = 1;
        }
        if (previous < 0 || utf8proc_grapheme_break_stateful(previous, codepoint, &state)) {
            if (characters == count) break;
            ++characters;
        }
        previous = codepoint;
        index += static_cast<std::size_t>(length);
    }
    return text.substr(0, index);
}

std::optional<int> readNumber(const std::string& digits) {
    int value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return value;
}

RsyncVersion classifyNumbers(std::optional<int> major, std::optional<int> minor, const std::string& output) {
    if (major == 2) return RsyncVersion::systemOrOpenrsync();
    if (major == 3 && minor == 1) return RsyncVersion::v31();
    // 3.5 prints its itemised and progress lines exactly as 3.2 to 3.4 do.
    if (major == 3 && minor && *minor >= 2 && *minor <= 5) return RsyncVersion::v32v33();
    return RsyncVersion::unsupported(prefixCharacters(output, rawLength));
}

}  // namespace

std::string RsyncVersion::description() const {
    switch (kind_) {
        case Kind::unsupported:
            return "unsupported(" + prefixCharacters(raw_, descriptionRawLength) + ")";
        case Kind::v31:
            return "v31";
        case Kind::v32v33:
            return "v32v33";
        case Kind::systemOrOpenrsync:
            return "systemOrOpenrsync";
    }
    return {};
}

std::string RsyncVersion::settingsLabel() const {
    switch (kind_) {
        case Kind::unsupported:
            return "unsupported";
        case Kind::v31:
            return "rsync 3.1";
        case Kind::v32v33:
            return "rsync 3.2 \u2013 3.5";
        case Kind::systemOrOpenrsync:
            return "openrsync / Samba 2.6.9";
    }
    return {};
}

RsyncVersion RsyncVersion::classify(const std::string& versionOutput) {
    if (versionOutput.find("openrsync:") != std::string::npos) return systemOrOpenrsync();
    static const std::regex versionPattern(R"(rsync\s+version\s+(\d+)\.(\d+))");
    std::smatch match;
    if (!std::regex_search(versionOutput, match, versionPattern))
        return unsupported(prefixCharacters(versionOutput, rawLength));
    return classifyNumbers(readNumber(match[1].str()), readNumber(match[2].str()), versionOutput);
}

RsyncVersion RsyncVersion::detect(const std::string& path, std::stop_token token) {
    if (!isExecutableFile(path)) throw RsyncError::notExecutable(path);
    ProcessResult result;
    try {
        result =
            ProcessRunner::shared().run(path, {"--version"}, {}, std::move(token), rsyncProcessOptions());
    } catch (const PosixError&) {
        throw RsyncError::execFailed(path, -1);
    }
    // The real status is deliberately not reported.
    if (result.status != 0) throw RsyncError::execFailed(path, -1);
    return classify(result.output);
}

}  // namespace tapekeep
