#include "content/BrowseSearch.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <stop_token>
#include <string>
#include <vector>

#include "M8Files.h"
#include "TempDir.h"
#include "content/FileTreeLoader.h"
#include "content/SearchFolding.h"
#include "core/Cancelled.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

// An in-memory tree of a version under /version; a path ending in "/" is a folder.
class TreeBuilder {
public:
    explicit TreeBuilder(const Paths& paths) {
        for (const auto& path : paths) add(root_, fs::path("/version"), path);
    }
    [[nodiscard]] std::vector<FileNode> nodes() const { return nodesOf(root_); }

private:
    struct Entry {
        fs::path url;
        bool isDirectory = false;
        std::map<std::string, Entry> children;
    };

    static void add(Entry& folder, const fs::path& url, std::string_view path) {
        const auto slash = path.find('/');
        const std::string name(path.substr(0, slash));
        Entry& entry = folder.children[name];
        entry.url = url / name;
        if (slash == std::string_view::npos) return;
        entry.isDirectory = true;
        if (slash + 1 < path.size()) add(entry, entry.url, path.substr(slash + 1));
    }

    static std::vector<FileNode> nodesOf(const Entry& folder) {
        std::vector<FileNode> nodes;
        for (const auto& [name, entry] : folder.children) {
            FileNode node;
            node.url = entry.url;
            node.name = name;
            node.isDirectory = entry.isDirectory;
            if (entry.isDirectory)
                node.children = std::make_shared<const std::vector<FileNode>>(nodesOf(entry));
            else
                node.fileSize = 4;
            nodes.push_back(std::move(node));
        }
        return nodes;
    }

    Entry root_;
};

Paths pathsOf(const BrowseSearchResult& result) {
    Paths paths;
    for (const auto& hit : result.hits)
        paths.push_back(hit.relativePath() + (hit.node.isDirectory ? "/" : ""));
    return paths;
}

Paths found(const Paths& tree, std::string_view query, BrowseSearchFilter filter = BrowseSearchFilter::all) {
    return pathsOf(BrowseSearch::search(TreeBuilder(tree).nodes(), query, filter));
}

TEST(BrowseSearchTest, FoldingIgnoresCaseAndDiacriticsAndTokensSplitAtBlanksAndSlashes) {
    EXPECT_EQ(foldedForSearch("Kick 808.WAV"), "kick 808.wav");
    EXPECT_EQ(foldedForSearch("CAFÉ"), "cafe");
    EXPECT_EQ(foldedForSearch("cafe\u0301"), "cafe");  // decomposed, as some file systems store it
    EXPECT_EQ(foldedForSearch("Straße"), "strasse");
    EXPECT_EQ(searchTokens("Songs/Kick 808"), (Paths{"songs", "kick", "808"}));
    EXPECT_EQ(searchTokens(" //a\tB\u3000c\u00a0d/ "), (Paths{"a", "b", "c", "d"}));

    EXPECT_EQ(found({"Samples/CAFE.wav", "Samples/tea.wav"}, "café"), Paths{"Samples/CAFE.wav"});
    EXPECT_EQ(found({"Samples/Café Noir.wav", "Samples/tea.wav"}, "CAFE noir"),
              Paths{"Samples/Café Noir.wav"});
}

TEST(BrowseSearchTest, FoldersOnThePathMeetTokensTheFileNameLacks) {
    const Paths tree{"Samples/Drums/Kick1.wav", "Samples/Drums/Snare.wav", "Songs/drums.m8s",
                     "Songs/kick.m8s"};
    EXPECT_EQ(found(tree, "drums kick"), Paths{"Samples/Drums/Kick1.wav"});
    EXPECT_EQ(found(tree, "Songs/Kick"), Paths{"Songs/kick.m8s"});
    EXPECT_EQ(found(tree, "samples snare drums"), Paths{"Samples/Drums/Snare.wav"});
    // A folder that is a hit is still searched below.
    EXPECT_EQ(found(tree, "drums"), (Paths{"Samples/Drums/", "Songs/drums.m8s", "Samples/Drums/Kick1.wav",
                                           "Samples/Drums/Snare.wav"}));
}

TEST(BrowseSearchTest, HitsNamedByEveryTokenComeFirstThenFoldersThenByNameThenByFolder) {
    const Paths tree{"Drums/Kick/a.wav", "Loops/zz drums kick.wav", "Kicks/",
                     "kick.wav",         "Beta/kick.wav",           "alpha/kick.wav"};
    EXPECT_EQ(found(tree, "drums kick"),
              (Paths{"Loops/zz drums kick.wav", "Drums/Kick/", "Drums/Kick/a.wav"}));
    EXPECT_EQ(found({"Kicks/", "kick.wav", "Beta/kick.wav", "alpha/kick.wav", "KICK2.wav"}, "kick"),
              (Paths{"Kicks/", "kick.wav", "alpha/kick.wav", "Beta/kick.wav", "KICK2.wav"}));
}

TEST(BrowseSearchTest, AnEmptyQueryListsAKindButSearchesNothingForAllFiles) {
    const Paths tree{"Songs/B.m8s", "Songs/a.m8s", "Songs/Old/c.m8s", "Instruments/x.m8i"};
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::songs),
              (Paths{"Songs/a.m8s", "Songs/B.m8s", "Songs/Old/c.m8s"}));
    const auto blank = BrowseSearch::search(TreeBuilder(tree).nodes(), " \t\n", BrowseSearchFilter::all);
    EXPECT_TRUE(blank.hits.empty());
    EXPECT_FALSE(blank.truncated);

    EXPECT_FALSE(BrowseSearch::isActive(" \n ", BrowseSearchFilter::all));
    EXPECT_TRUE(BrowseSearch::isActive(" k ", BrowseSearchFilter::all));
    EXPECT_TRUE(BrowseSearch::isActive("", BrowseSearchFilter::songs));
}

TEST(BrowseSearchTest, EachM8KindIsToldByItsFoldedExtension) {
    const Paths tree{"a.M8S", "b.m8i", "c.m8t", "d.m8n", "e.m8s.bak", "f.m8s/", "m8s"};
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::songs), Paths{"a.M8S"});
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::instruments), Paths{"b.m8i"});
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::themes), Paths{"c.m8t"});
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::scales), Paths{"d.m8n"});
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::other), (Paths{"e.m8s.bak", "m8s"}));
}

TEST(BrowseSearchTest, AudioAtTheTopLevelRendersFolderIsARenderAndElsewhereASample) {
    const Paths tree{"RENDERS/mix.WAV",   "Samples/renders/hit.wav", "Samples/kick.aiff",
                     "Renders/notes.txt", "Renders/Old/take.flac",   "Samples/.wav"};
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::renders),
              (Paths{"RENDERS/mix.WAV", "Renders/Old/take.flac"}));
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::samples),
              (Paths{"Samples/renders/hit.wav", "Samples/kick.aiff"}));
    // ".wav" is a name without an extension, so it is no sound.
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::other), (Paths{"Samples/.wav", "Renders/notes.txt"}));
}

TEST(BrowseSearchTest, BundlesAreTheFoldersDirectlyInTheTopLevelBundlesFolder) {
    const Paths tree{"Bundles/Pack/Inner/", "Bundles/Pack/readme.txt", "Bundles/Kit/",
                     "Bundles/loose.txt",   "Samples/Bundles/Fake/",   "notes.txt"};
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::bundles), (Paths{"Bundles/Kit/", "Bundles/Pack/"}));
    EXPECT_EQ(found(tree, "pack", BrowseSearchFilter::bundles), Paths{"Bundles/Pack/"});
    // What a bundle holds is not among the other files.
    EXPECT_EQ(found(tree, "", BrowseSearchFilter::other), Paths{"notes.txt"});
}

TEST(BrowseSearchTest, FiveHundredHitsAreAllShownAndOneMoreIsCut) {
    Paths tree;
    for (int at = 0; at < 501; ++at) tree.push_back("Samples/kick" + std::to_string(1000 + at) + ".wav");
    const auto all = BrowseSearch::search(TreeBuilder(tree).nodes(), "kick", BrowseSearchFilter::samples);
    EXPECT_TRUE(all.truncated);
    ASSERT_EQ(all.hits.size(), 500u);
    EXPECT_EQ(all.hits.front().node.name, "kick1000.wav");
    EXPECT_EQ(all.hits.back().node.name, "kick1499.wav");

    tree.pop_back();
    const auto exact = BrowseSearch::search(TreeBuilder(tree).nodes(), "kick", BrowseSearchFilter::samples);
    EXPECT_FALSE(exact.truncated);
    EXPECT_EQ(exact.hits.size(), 500u);
}

TEST(BrowseSearchTest, AStopRequestEndsTheWalk) {
    std::stop_source source;
    source.request_stop();
    EXPECT_THROW(BrowseSearch::search(TreeBuilder({"a.wav"}).nodes(), "a", BrowseSearchFilter::all, nullptr,
                                      source.get_token()),
                 Cancelled);
}

TEST(BrowseSearchTest, FiltersHaveTheirRawValuesAndNouns) {
    std::vector<std::pair<std::string, std::string>> names;
    for (const auto filter : allBrowseSearchFilters) names.emplace_back(rawValue(filter), noun(filter));
    EXPECT_EQ(names, (std::vector<std::pair<std::string, std::string>>{{"all", "files"},
                                                                       {"songs", "songs"},
                                                                       {"instruments", "instruments"},
                                                                       {"samples", "samples"},
                                                                       {"themes", "themes"},
                                                                       {"scales", "scales"},
                                                                       {"bundles", "bundles"},
                                                                       {"renders", "renders"},
                                                                       {"unused", "unused samples"},
                                                                       {"other", "other files"}}));
    EXPECT_EQ(browseSearchFilterNamed("unused"), BrowseSearchFilter::unused);
    EXPECT_EQ(browseSearchFilterNamed("Songs"), std::nullopt);
}

// A version on disk, loaded as the browser loads it.
class BrowseSearchOnDiskTest : public ::testing::Test {
protected:
    Paths search(std::string_view query, BrowseSearchFilter filter,
                 const UnusedSampleLookup* unused = nullptr) {
        return pathsOf(BrowseSearch::search(loadFileTree(version_), query, filter, unused));
    }

    test::TempDir temp_;
    const fs::path version_ = temp_ / "backup-2026-01-01-100000";
};

TEST_F(BrowseSearchOnDiskTest, UnusedListsOnlySamplesNoSongOrInstrumentRefersTo) {
    test::writeFile(version_ / "Songs/SONG.m8s", test::songWithSamples({"/Samples/used.wav"}));
    for (const auto* file :
         {"Samples/used.wav", "Samples/spare.wav", "Samples/spare.txt", "Renders/spare.wav"})
        test::writeFile(version_ / file, "RIFF");
    const UnusedSampleLookup unused{version_, BrowseFileService::sampleUsageIndex(version_)};
    EXPECT_EQ(search("", BrowseSearchFilter::unused, &unused), Paths{"Samples/spare.wav"});
    EXPECT_EQ(search("spare", BrowseSearchFilter::unused, &unused), Paths{"Samples/spare.wav"});
    EXPECT_EQ(search("", BrowseSearchFilter::unused), Paths{});
}

TEST_F(BrowseSearchOnDiskTest, ASymbolicLinkToAFolderOutsideTheVersionIsNotSearched) {
    test::writeFile(temp_ / "outside/secret kick.wav", "RIFF");
    test::writeFile(version_ / "Samples/kick.wav", "RIFF");
    test::writeFile(version_ / ".hidden/kick.wav", "RIFF");
    fs::create_directory_symlink(temp_ / "outside", version_ / "Samples/Linked");
    fs::create_symlink(temp_ / "outside/secret kick.wav", version_ / "Samples/linked kick.wav");
    EXPECT_EQ(search("kick", BrowseSearchFilter::all), Paths{"Samples/kick.wav"});
    EXPECT_EQ(search("linked", BrowseSearchFilter::all), Paths{});
}

}  // namespace
}  // namespace tapekeep
