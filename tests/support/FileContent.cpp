#include "FileContent.h"

#include <algorithm>

#include "FatCard.h"
#include "TempDir.h"

namespace tapekeep::test {
namespace fs = std::filesystem;

std::string pseudoRandomBytes(std::size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (auto& byte : bytes) {
        seed = seed * 1103515245u + 12345u;
        byte = static_cast<char>(seed >> 16);
    }
    return bytes;
}

std::map<std::string, std::string> treeOf(const fs::path& folder) {
    std::map<std::string, std::string> tree;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const std::string relative = fs::relative(entry.path(), folder).string();
        if (entry.is_symlink())
            tree[relative] = "-> " + fs::read_symlink(entry.path()).string();
        else
            tree[relative] = entry.is_regular_file() ? readFile(entry.path()) : "/";
    }
    return tree;
}

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<fs::path> exportTemporariesBelow(const fs::path& folder) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.path().filename().string().find("-export-") != std::string::npos)
            found.push_back(entry.path());
    return found;
}

bool sameTree(const fs::path& a, const fs::path& b, std::string* differences) {
    return runShell("diff -r " + shellQuote(a.string()) + " " + shellQuote(b.string()), differences) == 0;
}

}  // namespace tapekeep::test
