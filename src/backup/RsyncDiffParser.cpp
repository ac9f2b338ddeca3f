#include "backup/RsyncDiffParser.h"

#include <algorithm>

#include "backup/RsyncParseError.h"
#include "core/Uuid.h"

namespace tapekeep::RsyncDiffParser {
namespace {

constexpr std::string_view deletingPrefix = "*deleting";
constexpr std::size_t deletingWordEnd = deletingPrefix.size();  // 9
// Where the separator may stand: after a padded field, after rsync 3.x's 11 flags, after 9.
constexpr std::size_t separatorCandidates[] = {12, 11, 9};
constexpr std::size_t shortestChangeLine = 11;
constexpr std::string_view updateTypes = "<>ch";
constexpr std::string_view fileTypes = "fdLDS";
constexpr std::string_view attributeFlags = ".+?cstTpoguaxnbf";

bool isSeparator(char character) {
    return character == ' ' || character == '\t';
}

bool contains(std::string_view characters, char character) {
    return characters.find(character) != std::string_view::npos;
}

FileDiff makeDiff(std::string_view path, FileDiff::Kind kind) {
    return FileDiff{makeUuid(), std::string(path), kind};
}

// The first tab; else the first candidate whose characters from index 9 through it are blanks;
// else index 9.
std::size_t deletingSeparator(std::string_view line) {
    if (const std::size_t tab = line.find('\t'); tab != std::string_view::npos) return tab;
    for (const std::size_t index : separatorCandidates) {
        if (index >= line.size()) continue;
        const std::string_view padding = line.substr(deletingWordEnd, index - deletingWordEnd + 1);
        if (std::ranges::all_of(padding, [](char character) { return character == ' '; })) return index;
    }
    return deletingWordEnd;
}

std::optional<FileDiff> parseDeletion(std::string_view line, bool includeDirectories) {
    const std::size_t separator = deletingSeparator(line);
    if (separator + 1 >= line.size() || !isSeparator(line[separator])) return std::nullopt;
    const std::string_view path = line.substr(separator + 1);
    if (!includeDirectories && path.ends_with('/')) return std::nullopt;
    return makeDiff(path, FileDiff::Kind::deleted);
}

// The first candidate that holds a separator and has only attribute flags from index 2 up to it.
std::optional<std::size_t> changeSeparator(std::string_view line) {
    for (const std::size_t index : separatorCandidates) {
        if (index >= line.size() || !isSeparator(line[index])) continue;
        if (line.substr(2, index - 2).find_first_not_of(attributeFlags) == std::string_view::npos)
            return index;
    }
    return std::nullopt;
}

std::optional<FileDiff> parseChange(std::string_view line, bool includeDirectories) {
    if (line.size() < shortestChangeLine) return std::nullopt;
    // "." at index 0 means nothing is transferred: at most attributes differ.
    if (!contains(updateTypes, line[0]) || !contains(fileTypes, line[1])) return std::nullopt;
    const std::optional<std::size_t> separator = changeSeparator(line);
    if (!separator) return std::nullopt;
    const std::string_view path = line.substr(*separator + 1);
    if (path.empty()) return std::nullopt;
    if (!includeDirectories && line[1] == 'd') return std::nullopt;

    const std::string_view flags = line.substr(2, *separator - 2);
    if (contains(flags, '+')) return makeDiff(path, FileDiff::Kind::added);
    if (flags.find_first_not_of(". ") != std::string_view::npos)
        return makeDiff(path, FileDiff::Kind::modified);
    return std::nullopt;
}

}  // namespace

std::optional<FileDiff> parseLine(std::string_view line, bool includeDirectories) {
    if (line.starts_with(deletingPrefix)) return parseDeletion(line, includeDirectories);
    return parseChange(line, includeDirectories);
}

std::vector<FileDiff> parse(const std::vector<std::string>& lines, bool includeDirectories) {
    std::vector<FileDiff> diffs;
    for (const std::string& line : lines) {
        if (std::optional<FileDiff> diff = parseLine(line, includeDirectories))
            diffs.push_back(std::move(*diff));
    }
    return diffs;
}

std::vector<FileDiff> parse(const std::vector<std::string>& lines, const RsyncVersion& version,
                            bool includeDirectories) {
    if (version.kind() == RsyncVersion::Kind::unsupported)
        throw RsyncParseError::unsupportedVersion(version.raw());
    return parse(lines, includeDirectories);
}

}  // namespace tapekeep::RsyncDiffParser
