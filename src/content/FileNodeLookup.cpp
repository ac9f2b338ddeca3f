#include "content/FileNodeLookup.h"

#include <algorithm>

#include "content/SampleReferences.h"

namespace tapekeep::FileNodeLookup {

namespace {

const FileNode* childNamed(const std::vector<FileNode>& nodes, const std::string& name) {
    const auto exact = std::ranges::find(nodes, name, &FileNode::name);
    if (exact != nodes.end()) return &*exact;
    const auto key = BrowseFileService::indexKey(name);
    const auto alike = std::ranges::find_if(
        nodes, [&](const FileNode& node) { return BrowseFileService::indexKey(node.name) == key; });
    return alike == nodes.end() ? nullptr : &*alike;
}

}  // namespace

std::optional<std::vector<const FileNode*>> chain(const std::vector<FileNode>* roots,
                                                  const std::vector<std::string>& names) {
    std::vector<const FileNode*> nodes;
    const std::vector<FileNode>* level = roots;
    for (const auto& name : names) {
        const FileNode* node = level ? childNamed(*level, name) : nullptr;
        if (!node) return std::nullopt;
        nodes.push_back(node);
        level = node->children.get();
    }
    return nodes;
}

}  // namespace tapekeep::FileNodeLookup
