#include "content/FileTreeLoader.h"

#include <algorithm>

#include "content/SearchFolding.h"
#include "core/Cancelled.h"
#include "core/Uuid.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

struct SortableNode {
    std::string foldedName;
    FileNode node;
};

bool listedBefore(const SortableNode& left, const SortableNode& right) {
    if (left.node.isDirectory != right.node.isDirectory) return left.node.isDirectory;
    if (left.foldedName != right.foldedName) return left.foldedName < right.foldedName;
    return left.node.name < right.node.name;
}

std::vector<FileNode> listFolder(const fs::path& folder, const std::stop_token& token);

std::optional<FileNode> nodeOf(const fs::directory_entry& entry, const std::stop_token& token) {
    std::error_code error;
    const auto status = entry.symlink_status(error);
    if (error || fs::is_symlink(status)) return std::nullopt;
    FileNode node;
    node.id = makeUuid();
    node.url = entry.path();
    node.name = entry.path().filename().string();
    if (fs::is_directory(status)) {
        node.isDirectory = true;
        node.children = std::make_shared<const std::vector<FileNode>>(listFolder(entry.path(), token));
        return node;
    }
    if (!fs::is_regular_file(status)) return std::nullopt;
    const auto size = entry.file_size(error);
    if (error) return std::nullopt;
    node.fileSize = size;
    return node;
}

std::vector<FileNode> listFolder(const fs::path& folder, const std::stop_token& token) {
    std::vector<SortableNode> listed;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        throwIfCancelled(token);
        if (it->path().filename().string().starts_with('.')) continue;
        if (auto node = nodeOf(*it, token)) listed.push_back({foldedForSearch(node->name), std::move(*node)});
    }
    std::sort(listed.begin(), listed.end(), listedBefore);
    std::vector<FileNode> nodes;
    nodes.reserve(listed.size());
    for (auto& entry : listed) nodes.push_back(std::move(entry.node));
    return nodes;
}

}  // namespace

std::vector<FileNode> loadFileTree(const fs::path& root, std::stop_token token) {
    return listFolder(root, token);
}

}  // namespace tapekeep
