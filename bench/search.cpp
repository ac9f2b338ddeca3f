// How long a search of a large backup version takes: a tree of 100,000 files and folders laid out
// as a well-used card (songs in set folders, sample kits, instruments, renders, bundles, a few names
// with accents) is searched for "drum kick". The target is under 50 ms. The baseline is a plain
// recursive walk of the same tree that compares each name with a fixed one, the least any search
// must do; the ratio is what folding, matching, filtering and ranking add to it.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "BestTime.h"
#include "content/BrowseSearch.h"
#include "core/Formatting.h"

namespace {

using namespace tapekeep;

constexpr int targetNodeCount = 100'000;
constexpr int runs = 5;
constexpr double targetMilliseconds = 50.0;

struct Generator {
    int count = 0;

    FileNode file(const std::string& folder, std::string name) {
        ++count;
        FileNode node;
        node.url = folder + "/" + name;
        node.name = std::move(name);
        node.fileSize = 4096;
        return node;
    }

    FileNode folder(const std::string& parent, std::string name, std::vector<FileNode> children) {
        ++count;
        FileNode node;
        node.url = parent + "/" + name;
        node.name = std::move(name);
        node.isDirectory = true;
        node.children = std::make_shared<const std::vector<FileNode>>(std::move(children));
        return node;
    }

    // A top-level folder of `folders` folders holding `perFolder` files each.
    FileNode area(const std::string& name, int folders, int perFolder, const auto& folderName,
                  const auto& fileName) {
        std::vector<FileNode> inside;
        const std::string top = "/version/" + name;
        for (int at = 0; at < folders; ++at) {
            const std::string sub = folderName(at);
            std::vector<FileNode> files;
            for (int index = 0; index < perFolder; ++index)
                files.push_back(file(top + "/" + sub, fileName(at, index)));
            inside.push_back(folder(top, sub, std::move(files)));
        }
        return folder("/version", name, std::move(inside));
    }
};

std::string numbered(const char* stem, int number, const char* extension = "") {
    char text[64];
    std::snprintf(text, sizeof text, "%s %03d%s", stem, number, extension);
    return text;
}

std::vector<FileNode> generateTree(int& nodeCount) {
    static const char* kits[] = {"Drums", "Perc", "Bass", "Pads", "Vox", "FX", "Keys", "Café Loops"};
    static const char* hits[] = {"Kick", "Snare", "Hat", "Clap", "Tom", "Rim", "Shaker", "Crash"};
    Generator make;
    std::vector<FileNode> roots;
    roots.push_back(make.area(
        "Songs", 199, 100, [](int at) { return numbered("Set", at); },
        [](int, int index) { return numbered("SONG", index, ".m8s"); }));
    roots.push_back(make.area(
        "Samples", 499, 100, [](int at) { return numbered(kits[at % 8], at); },
        [](int at, int index) { return numbered(hits[(at + index) % 8], index, ".wav"); }));
    roots.push_back(make.area(
        "Instruments", 99, 100, [](int at) { return numbered("Bank", at); },
        [](int, int index) { return numbered("INST", index, ".m8i"); }));
    roots.push_back(make.area(
        "Renders", 99, 100, [](int at) { return numbered("Gig", at); },
        [](int, int index) { return numbered("drum kick take", index, ".wav"); }));
    const int left = targetNodeCount - make.count - 2;
    roots.push_back(make.area(
        "Bundles", 1, left, [](int) { return std::string("Drum Kit"); },
        [](int, int index) { return numbered("kick", index, ".m8s"); }));
    nodeCount = make.count;
    return roots;
}

std::size_t countNamesEqualTo(const std::vector<FileNode>& nodes, const std::string& name) {
    std::size_t equal = 0;
    for (const auto& node : nodes) {
        equal += node.name == name ? 1 : 0;
        if (node.children) equal += countNamesEqualTo(*node.children, name);
    }
    return equal;
}

}  // namespace

int main() {
    int nodeCount = 0;
    const auto tree = generateTree(nodeCount);

    BrowseSearchResult result;
    const double searchSeconds = bench::bestSeconds(
        runs, [&] { result = BrowseSearch::search(tree, "drum kick", BrowseSearchFilter::all); });
    std::size_t equal = 0;
    const double walkSeconds =
        bench::bestSeconds(runs, [&] { equal = countNamesEqualTo(tree, "Kick 042.wav"); });

    std::printf(
        "tree: %s nodes; query \"drum kick\": %zu hits shown, truncated: %s (%zu equal names in the walk)\n",
        formatWithThousandsSeparator(nodeCount).c_str(), result.hits.size(), result.truncated ? "yes" : "no",
        equal);
    std::printf("search:                          %7.2f ms (best of %d; target under %.0f ms)\n",
                searchSeconds * 1000.0, runs, targetMilliseconds);
    std::printf("baseline, walk comparing names:  %7.2f ms (best of %d)\n", walkSeconds * 1000.0, runs);
    std::printf("ratio: the search takes %.1fx the time of the plain walk\n", searchSeconds / walkSeconds);
    std::printf("target met: %s\n", searchSeconds * 1000.0 < targetMilliseconds ? "yes" : "no");
    return 0;
}
