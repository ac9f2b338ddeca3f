#include "content/M8FileKind.h"

#include <cctype>
#include <string>

namespace tapekeep {

M8FileKind m8FileKindOf(const std::filesystem::path& file) {
    std::string extension = file.extension().string();
    for (auto& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (extension == ".m8s") return M8FileKind::song;
    if (extension == ".m8i") return M8FileKind::instrument;
    return M8FileKind::other;
}

}  // namespace tapekeep
