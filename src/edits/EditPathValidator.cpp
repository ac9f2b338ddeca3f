#include "edits/EditPathValidator.h"

#include <fcntl.h>
#include <utf8proc.h>

#include <system_error>
#include <vector>

#include "content/SampleReferences.h"
#include "core/FileComparison.h"
#include "core/FileDescriptor.h"
#include "core/FileReading.h"
#include "edits/EditPathValidatorError.h"

namespace tapekeep::EditPathValidator {
namespace fs = std::filesystem;

namespace {

constexpr std::size_t comparisonChunkSize = 1'048'576;

// The code points of the text, each with its bytes; a byte that is not UTF-8 stands alone as -1.
template <typename Visit>
void forEachCodePoint(std::string_view text, Visit visit) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    for (std::size_t at = 0; at < text.size();) {
        utf8proc_int32_t codePoint = -1;
        auto length =
            utf8proc_iterate(bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at), &codePoint);
        if (length <= 0) length = 1, codePoint = -1;
        if (!visit(codePoint)) return;
        at += static_cast<std::size_t>(length);
    }
}

bool isLetter(utf8proc_int32_t codePoint) {
    if (codePoint < 0) return false;
    const auto category = utf8proc_category(codePoint);
    return category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_LO;
}

// The first two user-perceived characters, as the code points that begin and make them up.
struct LeadingCharacters {
    utf8proc_int32_t firstStart = -1;
    std::vector<utf8proc_int32_t> second;
};

LeadingCharacters leadingCharacters(std::string_view component) {
    LeadingCharacters leading;
    utf8proc_int32_t previous = -1, state = 0;
    int character = 0;
    forEachCodePoint(component, [&](utf8proc_int32_t codePoint) {
        const bool startsCharacter =
            previous < 0 || codePoint < 0 || utf8proc_grapheme_break_stateful(previous, codePoint, &state);
        if (startsCharacter) ++character;
        if (character > 2) return false;
        if (character == 1 && startsCharacter) leading.firstStart = codePoint;
        if (character == 2) leading.second.push_back(codePoint);
        previous = codePoint;
        return true;
    });
    return leading;
}

// "C:" and the like: a letter and then a colon, as the first two characters of a component.
bool hasDriveLetter(std::string_view component) {
    const auto leading = leadingCharacters(component);
    return isLetter(leading.firstStart) && leading.second == std::vector<utf8proc_int32_t>{':'};
}

void validateComponentOfPath(std::string_view component, std::string_view path) {
    if (component.empty()) throw EditPathValidatorError::emptyComponent(std::string(path));
    if (component == ".." || component == ".")
        throw EditPathValidatorError::containsTraversal(std::string(path));
    // A backslash is a separator on the other side of a copy, so it could smuggle a traversal in.
    if (component.find('\\') != std::string_view::npos)
        throw EditPathValidatorError::containsTraversal(std::string(path));
    if (hasDriveLetter(component)) throw EditPathValidatorError::driveLetter(std::string(path));
}

std::string resolvedStandardPath(const fs::path& url) {
    std::error_code error;
    auto resolved = fs::weakly_canonical(url, error);
    if (error) resolved = url;
    return resolved.lexically_normal().string();
}

}  // namespace

void validatePath(std::string_view path) {
    if (path.find('\0') != std::string_view::npos) throw EditPathValidatorError::nullByte(std::string(path));
    if (!path.starts_with('/')) throw EditPathValidatorError::notRooted(std::string(path));
    std::string_view rest = path.substr(1);
    for (;;) {
        const auto slash = rest.find('/');
        validateComponentOfPath(rest.substr(0, slash), path);
        if (slash == std::string_view::npos) return;
        rest.remove_prefix(slash + 1);
    }
}

void validateComponent(std::string_view name) {
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of(std::string_view("/\\\0", 3)) != std::string_view::npos)
        throw EditPathValidatorError::invalidComponent(std::string(name));
}

std::string normalizePath(std::string_view path) {
    return BrowseFileService::normalizedKey(path);
}

bool pathsEqual(std::string_view first, std::string_view second) {
    return BrowseFileService::indexKey(first) == BrowseFileService::indexKey(second);
}

std::optional<std::string> cardRelativePath(const fs::path& file, const fs::path& root) {
    const auto filePath = resolvedStandardPath(file);
    auto rootPath = resolvedStandardPath(root);
    if (filePath == rootPath) return normalizePath("/");
    if (!rootPath.ends_with('/')) rootPath += '/';
    if (!filePath.starts_with(rootPath)) return std::nullopt;
    return normalizePath(std::string_view(filePath).substr(rootPath.size()));
}

void contentsEqual(const fs::path& first, const fs::path& second, const std::stop_token& token) {
    const auto firstFile =
        FileDescriptor::checked(::open(first.c_str(), O_RDONLY | O_CLOEXEC), first.string());
    const auto secondFile =
        FileDescriptor::checked(::open(second.c_str(), O_RDONLY | O_CLOEXEC), second.string());
    std::vector<char> firstChunk(comparisonChunkSize), secondChunk(comparisonChunkSize);
    if (!sameBytesToEnd(firstFile.get(), first.string(), firstChunk, secondFile.get(), second.string(),
                        secondChunk, token))
        throw EditPathValidatorError::contentsDiffer();
}

}  // namespace tapekeep::EditPathValidator
