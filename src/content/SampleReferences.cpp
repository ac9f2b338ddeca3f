#include "content/SampleReferences.h"

#include <sys/stat.h>
#include <unistd.h>
#include <utf8proc.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <optional>
#include <unordered_set>

#include "content/BrowseFileError.h"
#include "content/M8InstrumentError.h"
#include "content/M8SongParser.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "core/Utf8.h"

namespace tapekeep::BrowseFileService {
namespace fs = std::filesystem;

namespace {

// What the kernel itself allows before it gives up with ELOOP.
constexpr int maximumLinkHops = 40;

// ---- text -------------------------------------------------------------------------------------

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Canonical composition, so that a name typed on one system matches one stored by another. Text that
// is not UTF-8 cannot be composed and is kept as it is.
std::string composed(std::string text) {
    if (isAscii(text)) return text;
    utf8proc_uint8_t* output = nullptr;
    const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                     static_cast<utf8proc_ssize_t>(text.size()), &output,
                                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    if (length >= 0) text.assign(reinterpret_cast<const char*>(output), static_cast<std::size_t>(length));
    std::free(output);
    return text;
}

// Lower-cases code point by code point; bytes that are not UTF-8 are kept.
std::string lowercased(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    for (std::size_t offset = 0; offset < text.size();) {
        const auto byte = static_cast<unsigned char>(text[offset]);
        if (byte < 0x80) {
            result += static_cast<char>(byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : byte);
            ++offset;
            continue;
        }
        utf8proc_int32_t codePoint = -1;
        const auto length =
            utf8proc_iterate(bytes + offset, static_cast<utf8proc_ssize_t>(text.size() - offset), &codePoint);
        if (length <= 0) {
            result += text[offset++];
            continue;
        }
        utf8proc_uint8_t encoded[4];
        const auto written = utf8proc_encode_char(utf8proc_tolower(codePoint), encoded);
        result.append(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(written));
        offset += static_cast<std::size_t>(length);
    }
    return result;
}

std::string lowercasedExtension(const fs::path& path) {
    return lowercased(path.extension().native());
}

// ---- paths ------------------------------------------------------------------------------------
// Absolute, slash-separated text; "/" alone is the root.

// The components of a path, without empty and "." ones.
std::vector<std::string_view> componentsOf(std::string_view path) {
    std::vector<std::string_view> components;
    while (!path.empty()) {
        const auto slash = path.find('/');
        const auto component = path.substr(0, slash);
        if (!component.empty() && component != ".") components.push_back(component);
        path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    }
    return components;
}

// Leaves "" for the root, which the walks below use while they build a path.
void dropLastComponent(std::string& path) {
    const auto slash = path.rfind('/');
    path.resize(slash == std::string::npos ? 0 : slash);
}

std::string lexicallyNormal(std::string_view absolutePath) {
    std::string normal;
    for (const auto component : componentsOf(absolutePath)) {
        if (component == "..") {
            dropLastComponent(normal);
        } else {
            normal += '/';
            normal += component;
        }
    }
    return normal.empty() ? "/" : normal;
}

// Absolute, without ".", ".." or empty components and without a trailing slash. Nothing is resolved.
std::string standardized(const fs::path& path) {
    std::error_code ignored;  // only a failing getcwd; the path then stays relative and fails containment
    return lexicallyNormal((path.is_absolute() ? path : fs::absolute(path, ignored)).native());
}

std::string parentOf(std::string path) {
    dropLastComponent(path);
    return path.empty() ? "/" : path;
}

// The root itself or below it, by the text of two standardised paths.
bool isInsideByText(std::string_view child, std::string_view root) {
    if (root == "/") return child.starts_with('/');
    return child.starts_with(root) && (child.size() == root.size() || child[root.size()] == '/');
}

// The target of a symbolic link; nothing for anything else, including a path that does not exist.
std::optional<std::string> linkTarget(const std::string& path) {
    char buffer[PATH_MAX];
    ssize_t length;
    while ((length = ::readlink(path.c_str(), buffer, sizeof buffer)) < 0 && errno == EINTR) {
    }
    if (length < 0) return std::nullopt;
    return std::string(buffer, static_cast<std::size_t>(length));
}

// Paths that one walk of a version found not to be symbolic links, so that the folders which many
// references share are read once per walk, not once per reference.
using NonLinks = std::unordered_set<std::string>;

void pushComponentsReversed(std::vector<std::string>& pending, std::string_view path) {
    const auto components = componentsOf(path);
    for (auto it = components.rbegin(); it != components.rend(); ++it) pending.emplace_back(*it);
}

// Resolves every symbolic link of a standardised path, component by component, also where the link
// dangles, so that a link cannot hide where it points by pointing at nothing yet. Components that do
// not exist are kept as they are. Nothing for a link loop. A path below `resolvedPrefix`, itself a
// result of this function, is walked from there: a version's own location is resolved only once.
// `followedLinkInside` learns whether a link that lies below `resolvedPrefix` was followed.
std::optional<std::string> resolvedPath(const std::string& path, const std::string& resolvedPrefix = "/",
                                        NonLinks* nonLinks = nullptr, bool* followedLinkInside = nullptr) {
    std::string resolved;  // "" while at the root
    std::string_view rest = path;
    if (resolvedPrefix != "/" && isInsideByText(path, resolvedPrefix)) {
        resolved = resolvedPrefix;
        rest.remove_prefix(resolvedPrefix.size());
    }
    std::vector<std::string> pending;  // the next component last
    pushComponentsReversed(pending, rest);
    for (int hops = 0; !pending.empty();) {
        const std::string name = std::move(pending.back());
        pending.pop_back();
        if (name == "..") {
            dropLastComponent(resolved);
            continue;
        }
        const auto parentLength = resolved.size();
        resolved += '/';
        resolved += name;
        if (nonLinks != nullptr && nonLinks->contains(resolved)) continue;
        const auto target = linkTarget(resolved);
        if (!target) {
            if (nonLinks != nullptr) nonLinks->insert(resolved);
            continue;
        }
        if (++hops > maximumLinkHops) return std::nullopt;
        if (followedLinkInside != nullptr && isInsideByText(resolved, resolvedPrefix))
            *followedLinkInside = true;
        resolved.resize(target->starts_with('/') ? 0 : parentLength);
        pushComponentsReversed(pending, *target);
    }
    return resolved.empty() ? "/" : resolved;
}

std::string resolvedRoot(const fs::path& versionRoot) {
    const std::string root = standardized(versionRoot);
    return resolvedPath(root).value_or(root);
}

// The part of a standardised candidate below a standardised root, or nothing when the candidate is
// not inside it, by the text of the paths and again by their components. "" for the root itself.
std::optional<std::string_view> pathBelow(std::string_view candidate, std::string_view root) {
    if (!isInsideByText(candidate, root)) return std::nullopt;
    const auto rootComponents = componentsOf(root);
    const auto components = componentsOf(candidate);
    if (rootComponents.size() > components.size() ||
        !std::equal(rootComponents.begin(), rootComponents.end(), components.begin()))
        return std::nullopt;
    return candidate.substr(std::min(candidate.size(), root == "/" ? 1 : root.size() + 1));
}

// Where a stored path may be anchored, most preferred first.
std::vector<std::string> candidateBases(bool absolute, const std::string& referencingFile,
                                        const std::string& root) {
    if (absolute) return {root};
    std::string folder = parentOf(referencingFile);
    return {parentOf(folder), std::move(folder), root};
}

std::vector<SampleCandidate> candidatesWithin(const std::string& storedPath,
                                              const std::string& referencingFile, const std::string& root,
                                              NonLinks* nonLinks = nullptr) {
    std::string path = trimmedWhitespace(storedPath);
    std::replace(path.begin(), path.end(), '\\', '/');
    if (path.empty()) throw BrowseFileError::sampleMissing(storedPath);
    const bool absolute = path.starts_with('/');
    path.erase(0, path.find_first_not_of('/'));
    if (path.empty()) throw BrowseFileError::samplePathEscapesVersion(storedPath);

    std::vector<SampleCandidate> candidates;
    std::vector<std::string> seenKeys;  // lower-cased; at most three
    for (const auto& base : candidateBases(absolute, referencingFile, root)) {
        bool throughLink = false;
        const auto url = resolvedPath(lexicallyNormal(base + "/" + path), root, nonLinks, &throughLink);
        if (!url) continue;
        const auto below = pathBelow(*url, root);
        if (!below) continue;
        std::string key = normalizedKey(*below);
        std::string seenKey = lowercased(key);
        if (std::find(seenKeys.begin(), seenKeys.end(), seenKey) != seenKeys.end()) continue;
        seenKeys.push_back(std::move(seenKey));
        candidates.push_back({*url, std::move(key), throughLink});
    }
    if (candidates.empty()) throw BrowseFileError::samplePathEscapesVersion(storedPath);
    return candidates;
}

std::optional<struct stat> linkStatus(const fs::path& path) {
    struct stat status {};
    int result;
    while ((result = ::lstat(path.c_str(), &status)) < 0 && errno == EINTR) {
    }
    if (result < 0) return std::nullopt;
    return status;
}

// ---- the index --------------------------------------------------------------------------------

std::vector<std::string> instrumentReferences(const fs::path& file) {
    try {
        auto samplePath = M8SongParser::parseInstrument(file);
        if (!samplePath) return {};
        return {std::move(*samplePath)};
    } catch (const M8InstrumentError& error) {
        if (error.kind() == M8InstrumentError::Kind::notAnInstrument) return {};
        throw BrowseFileError::invalidSong(file);
    } catch (const std::exception&) {
        throw BrowseFileError::invalidSong(file);
    }
}

void addUsage(SampleUsageIndex& index, const std::string& key, const fs::path& file) {
    auto& users = index[lowercased(key)];
    if (std::find(users.begin(), users.end(), file) == users.end()) users.push_back(file);
}

void collectM8Files(const fs::path& folder, const std::stop_token& token, std::vector<fs::path>& found) {
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error) throw PosixError::fromErrno(error.value(), "Could not list " + folder.string());
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
        if (error) break;
        throwIfCancelled(token);
        const fs::path& entry = entries->path();
        if (entry.filename().native().starts_with('.')) continue;
        const auto status = entries->symlink_status(error);
        if (error) throw PosixError::fromErrno(error.value(), "Could not read " + entry.string());
        if (fs::is_directory(status)) {
            collectM8Files(entry, token, found);
        } else if (fs::is_regular_file(status)) {
            const auto extension = lowercasedExtension(entry);
            if (extension == ".m8s" || extension == ".m8i") found.push_back(entry);
        }
    }
    if (error) throw PosixError::fromErrno(error.value(), "Could not list " + folder.string());
}

}  // namespace

// ---- public -----------------------------------------------------------------------------------

std::string normalizedKey(std::string_view path) {
    if (path.empty()) return "/";
    std::string text(path);
    std::replace(text.begin(), text.end(), '\\', '/');
    text = composed(std::move(text));
    if (!text.starts_with('/')) text.insert(text.begin(), '/');
    const auto doubled =
        std::unique(text.begin(), text.end(), [](char a, char b) { return a == '/' && b == '/'; });
    text.erase(doubled, text.end());
    if (text.size() > 1 && text.ends_with('/')) text.pop_back();
    return text;
}

std::string indexKey(std::string_view path) {
    return lowercased(normalizedKey(path));
}

std::vector<SampleCandidate> sampleCandidates(const std::string& storedPath, const fs::path& referencingFile,
                                              const fs::path& versionRoot) {
    return candidatesWithin(storedPath, standardized(referencingFile), resolvedRoot(versionRoot));
}

std::vector<std::string> storedSamplePaths(const fs::path& file) {
    if (isZeroByteFile(file)) return {};
    if (lowercasedExtension(file) == ".m8i") return instrumentReferences(file);
    auto song = M8SongParser::parseSong(file);
    if (!song) throw BrowseFileError::invalidSong(file);
    return std::move(song->samplePaths);
}

std::vector<fs::path> m8FileURLs(const fs::path& folder, std::stop_token token) {
    std::vector<fs::path> found;
    collectM8Files(folder, token, found);
    return found;
}

SampleUsageIndex sampleUsageIndex(const fs::path& versionRoot, std::stop_token token) {
    const std::string root = resolvedRoot(versionRoot);
    NonLinks nonLinks;
    SampleUsageIndex index;
    for (const auto& found : m8FileURLs(versionRoot, token)) {
        throwIfCancelled(token);
        const std::string file = standardized(found);
        for (const auto& reference : storedSamplePaths(file)) {
            for (const auto& candidate : candidatesWithin(reference, file, root, &nonLinks))
                addUsage(index, candidate.key, file);
        }
    }
    return index;
}

std::string relativePath(const fs::path& file, const fs::path& versionRoot) {
    const std::string root = resolvedRoot(versionRoot);
    const auto resolved = resolvedPath(standardized(file));
    if (!resolved) throw BrowseFileError::sourceMissing(file);  // a link loop leads nowhere
    if (!isInsideByText(*resolved, root) || *resolved == root) throw BrowseFileError::sourceOutsideVersion();
    if (!linkStatus(*resolved)) throw BrowseFileError::sourceMissing(file);
    return resolved->substr(root == "/" ? 1 : root.size() + 1);
}

bool isInside(const fs::path& url, const fs::path& root) {
    return isInsideByText(standardized(url), standardized(root));
}

bool isZeroByteFile(const fs::path& url) {
    const auto status = linkStatus(url);
    return status && S_ISREG(status->st_mode) && status->st_size == 0;
}

const std::vector<fs::path>* usersOf(const fs::path& file, const fs::path& versionPath,
                                     const SampleUsageIndex& index) {
    const std::string path = standardized(file);
    const std::string version = standardized(versionPath);
    if (path == version || !isInsideByText(path, version)) return nullptr;
    const auto users =
        index.find(indexKey(std::string_view(path).substr(version == "/" ? 1 : version.size() + 1)));
    static const std::vector<fs::path> none;
    return users == index.end() ? &none : &users->second;
}

bool isUnusedSample(const fs::path& file, const fs::path& versionPath, const SampleUsageIndex& index) {
    const auto* users = usersOf(file, versionPath, index);
    return users != nullptr && users->empty();
}

std::string usageLabel(const std::vector<std::string>& referencingPaths) {
    const auto instruments =
        std::count_if(referencingPaths.begin(), referencingPaths.end(),
                      [](const std::string& path) { return lowercasedExtension(path) == ".m8i"; });
    const auto songs = static_cast<std::ptrdiff_t>(referencingPaths.size()) - instruments;
    const auto counted = [](std::ptrdiff_t count, const char* noun) {
        return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
    };
    std::string label;
    if (songs > 0) label = counted(songs, "song");
    if (instruments > 0) label += (label.empty() ? "" : ", ") + counted(instruments, "instrument");
    return label;
}

}  // namespace tapekeep::BrowseFileService
