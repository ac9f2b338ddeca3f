#include "platform/MountTable.h"

#include <algorithm>
#include <optional>

#include "core/FileReading.h"

namespace tapekeep {
namespace {

constexpr const char* liveTablePath = "/proc/self/mountinfo";

bool isOctalDigit(char c) {
    return c >= '0' && c <= '7';
}

// The kernel writes space, tab, newline and backslash in paths as "\ooo".
std::string decodeOctalEscapes(std::string_view field) {
    std::string decoded;
    decoded.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && isOctalDigit(field[i + 1]) &&
            isOctalDigit(field[i + 2]) && isOctalDigit(field[i + 3])) {
            decoded += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                         (field[i + 3] - '0'));
            i += 3;
        } else {
            decoded += field[i];
        }
    }
    return decoded;
}

std::vector<std::string_view> fieldsOf(std::string_view line) {
    std::vector<std::string_view> fields;
    std::size_t start = 0;
    while (start < line.size()) {
        const std::size_t end = std::min(line.find(' ', start), line.size());
        if (end > start) fields.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    return fields;
}

// "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue": the mount
// point is the fifth field; after the optional fields and the "-" come type and source.
std::optional<MountTable::Entry> parseLine(std::string_view line) {
    constexpr std::ptrdiff_t mandatoryFieldCount = 6;
    const auto fields = fieldsOf(line);
    if (std::ssize(fields) < mandatoryFieldCount) return std::nullopt;
    const auto separator =
        std::find(fields.begin() + mandatoryFieldCount, fields.end(), std::string_view("-"));
    if (std::distance(separator, fields.end()) < 3) return std::nullopt;
    return MountTable::Entry{decodeOctalEscapes(fields[4]), decodeOctalEscapes(*(separator + 2)),
                             decodeOctalEscapes(*(separator + 1))};
}

// True when ancestor is the path itself or one of its parents, compared component by component.
bool isSameOrAncestor(const std::filesystem::path& ancestor, const std::filesystem::path& path) {
    return std::mismatch(ancestor.begin(), ancestor.end(), path.begin(), path.end()).first == ancestor.end();
}

// "/media/" and "/media" name the same folder; the trailing empty component would spoil comparisons.
std::filesystem::path normalized(const std::filesystem::path& path) {
    std::filesystem::path normal = path.lexically_normal();
    if (!normal.has_filename() && normal.has_relative_path()) normal = normal.parent_path();
    return normal;
}

std::size_t componentCount(const std::filesystem::path& path) {
    return static_cast<std::size_t>(std::distance(path.begin(), path.end()));
}

bool isStrictlyBelowAny(const std::filesystem::path& path, const std::vector<std::filesystem::path>& roots) {
    return std::any_of(roots.begin(), roots.end(), [&](const std::filesystem::path& root) {
        return isSameOrAncestor(root, path) && componentCount(path) > componentCount(root);
    });
}

}  // namespace

MountTable MountTable::parse(std::string_view mountinfo) {
    MountTable table;
    std::size_t start = 0;
    while (start < mountinfo.size()) {
        const std::size_t end = std::min(mountinfo.find('\n', start), mountinfo.size());
        if (auto entry = parseLine(mountinfo.substr(start, end - start)))
            table.entries_.push_back(std::move(*entry));
        start = end + 1;
    }
    return table;
}

MountTable MountTable::readLive() {
    return parse(readWholeFile(liveTablePath));
}

const MountTable::Entry* MountTable::mountContaining(const std::filesystem::path& path) const {
    const std::filesystem::path wanted = normalized(path);
    const Entry* best = nullptr;
    for (const Entry& entry : entries_) {
        if (!isSameOrAncestor(entry.mountPoint, wanted)) continue;
        if (best == nullptr || componentCount(entry.mountPoint) >= componentCount(best->mountPoint))
            best = &entry;
    }
    return best;
}

std::vector<std::filesystem::path> MountTable::volumesBelow(
    const std::vector<std::filesystem::path>& roots) const {
    std::vector<std::filesystem::path> normalRoots;
    for (const auto& root : roots) normalRoots.push_back(normalized(root));
    std::vector<std::filesystem::path> volumes;
    for (const Entry& entry : entries_) {
        const std::string name = entry.mountPoint.filename().string();
        if (name.empty() || name.starts_with('.')) continue;
        if (!isStrictlyBelowAny(entry.mountPoint, normalRoots)) continue;
        if (std::find(volumes.begin(), volumes.end(), entry.mountPoint) == volumes.end())
            volumes.push_back(entry.mountPoint);
    }
    return volumes;
}

}  // namespace tapekeep
