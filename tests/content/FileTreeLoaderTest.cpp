#include "content/FileTreeLoader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TempDir.h"
#include "core/Cancelled.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> namesOf(const std::vector<FileNode>& nodes) {
    std::vector<std::string> names;
    for (const auto& node : nodes) names.push_back(node.name);
    return names;
}

TEST(FileTreeLoaderTest, ListsFoldersFirstThenByNameWithoutCaseAndLeavesOutHiddenNamesAndLinks) {
    test::TempDir temp;
    const fs::path version = temp / "version";
    const std::pair<const char*, const char*> files[] = {{"b.wav", "12345"},         {"A.wav", "1"},
                                                         {"Songs/SONG.m8s", "song"}, {"samples/kick.wav", ""},
                                                         {".Trashes/old.wav", ""},   {".note", ""}};
    for (const auto& [file, content] : files) test::writeFile(version / file, content);
    test::writeFile(temp / "outside/far.wav", "");
    fs::create_directory_symlink(temp / "outside", version / "Linked");
    fs::create_symlink(version / "b.wav", version / "c.wav");

    const auto tree = loadFileTree(version);
    ASSERT_EQ(namesOf(tree), (std::vector<std::string>{"samples", "Songs", "A.wav", "b.wav"}));
    EXPECT_TRUE(tree[0].isDirectory);
    EXPECT_FALSE(tree[0].fileSize);
    EXPECT_EQ(namesOf(*tree[1].children), std::vector<std::string>{"SONG.m8s"});
    EXPECT_EQ((*tree[1].children)[0].url, version / "Songs/SONG.m8s");
    EXPECT_FALSE(tree[3].children);
    EXPECT_EQ(tree[3].fileSize, 5u);
    EXPECT_NE(tree[2].id, tree[3].id);
}

TEST(FileTreeLoaderTest, AMissingFolderIsEmptyAndAStopRequestEndsTheLoad) {
    test::TempDir temp;
    EXPECT_TRUE(loadFileTree(temp / "missing").empty());
    test::writeFile(temp / "a.wav", "");
    std::stop_source source;
    source.request_stop();
    EXPECT_THROW(loadFileTree(temp.path(), source.get_token()), Cancelled);
}

}  // namespace
}  // namespace tapekeep
