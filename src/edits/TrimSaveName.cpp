#include "edits/TrimSaveName.h"

#include <algorithm>
#include <cctype>

#include "backup/FileFingerprint.h"
#include "edits/TrimSaveError.h"

namespace tapekeep::TrimSaveName {
namespace fs = std::filesystem;

namespace {

bool hasWavExtension(const fs::path& path) {
    std::string extension = path.extension().string();
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char c) { return char(std::tolower(c)); });
    return extension == ".wav";
}

}  // namespace

std::string defaultName(const fs::path& source) {
    return source.stem().string() + "-trim.wav";
}

fs::path savePath(const fs::path& source, const fs::path& chosen) {
    fs::path path = chosen;
    if (!hasWavExtension(path)) path += ".wav";
    if (fs::absolute(path).lexically_normal() == fs::absolute(source).lexically_normal() ||
        isSameFile(source, path))
        throw TrimSaveError::overwritesOriginal();
    return path;
}

}  // namespace tapekeep::TrimSaveName
