#include "core/StandardPath.h"

namespace tapekeep {
namespace fs = std::filesystem;

fs::path standardized(const fs::path& path) {
    std::error_code ignored;  // only a failing getcwd: the path then stays relative and fails any containment
    fs::path normal = (path.is_absolute() ? path : fs::absolute(path, ignored)).lexically_normal();
    if (!normal.has_filename() && normal.has_relative_path()) normal = normal.parent_path();
    return normal;
}

}  // namespace tapekeep
