#include "workflows/BrowseSessionViewModel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <semaphore>
#include <string>
#include <vector>

#include "EventLoop.h"
#include "M8Files.h"
#include "TempDir.h"
#include "content/FileTreeLoader.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using Paths = std::vector<std::string>;
using namespace std::chrono_literals;

std::vector<FileNode> filesAtTheTop(const Paths& names) {
    std::vector<FileNode> nodes;
    for (const auto& name : names) {
        FileNode node;
        node.url = fs::path("/version") / name;
        node.name = name;
        node.fileSize = 4;
        nodes.push_back(std::move(node));
    }
    return nodes;
}

Paths pathsOf(const std::vector<BrowseSearchHit>& hits) {
    Paths paths;
    for (const auto& hit : hits) paths.push_back(hit.relativePath());
    return paths;
}

// A session over a tree, whose searches are counted and may be held back.
class BrowseSessionViewModelTest : public ::testing::Test {
protected:
    void SetUp() override { test::startApplication(); }

    std::unique_ptr<BrowseSessionViewModel> session(std::chrono::milliseconds debounce = 200ms) {
        BrowseSessionViewModel::Dependencies dependencies;
        dependencies.debounce = debounce;
        dependencies.search = [this](const std::vector<FileNode>& roots, std::string_view query,
                                     BrowseSearchFilter filter, const UnusedSampleLookup* unused,
                                     std::stop_token token) {
            if (searches_++ == 0 && holdFirstSearch_) {
                firstSearchEntered_ = true;
                firstSearchRelease_.acquire();
                firstSearchCancelled_ = token.stop_requested() ? 1 : 0;
                // A search that ends just as it is cancelled, and so delivers a result.
                return BrowseSearch::search(roots, query, filter, unused, {});
            }
            return BrowseSearch::search(roots, query, filter, unused, token);
        };
        dependencies.buildUsageIndex = [this](const fs::path& version, std::stop_token token) {
            ++indexBuilds_;
            return BrowseFileService::sampleUsageIndex(version, token);
        };
        auto made = std::make_unique<BrowseSessionViewModel>(std::move(dependencies));
        QObject::connect(made.get(), &BrowseSessionViewModel::searchResultsPublished,
                         [this, raw = made.get()] { published_.push_back(pathsOf(raw->searchHits())); });
        return made;
    }

    bool waitForPublications(std::size_t count) {
        return test::waitFor([&] { return published_.size() >= count; });
    }

    std::atomic<int> searches_ = 0;
    std::atomic<int> indexBuilds_ = 0;
    bool holdFirstSearch_ = false;
    std::atomic<bool> firstSearchEntered_ = false;
    std::binary_semaphore firstSearchRelease_{0};
    std::atomic<int> firstSearchCancelled_ = -1;  // unknown until it was released
    std::vector<Paths> published_;
};

TEST_F(BrowseSessionViewModelTest, TypingSeveralLettersRunsOneSearchAfterTheLast) {
    auto browse = session();
    browse->openTree("/version", filesAtTheTop({"kick.wav", "kit.m8s", "snare.wav"}));
    for (const auto* typed : {"k", "ki", "kic", "kick"}) browse->setSearchQuery(typed);
    EXPECT_EQ(searches_, 0);
    ASSERT_TRUE(waitForPublications(1));
    EXPECT_EQ(searches_, 1);
    EXPECT_EQ(published_, std::vector<Paths>{{"kick.wav"}});
    EXPECT_TRUE(browse->isSearchActive());
}

TEST_F(BrowseSessionViewModelTest, AResultOvertakenByANewQueryIsNeverShown) {
    holdFirstSearch_ = true;
    auto browse = session();
    browse->openTree("/version", filesAtTheTop({"kick.wav", "snare.wav"}));
    browse->setSearchQuery("kick");
    const bool entered = test::waitFor([&] { return firstSearchEntered_.load(); });
    browse->setSearchQuery("snare");
    firstSearchRelease_.release();
    ASSERT_TRUE(entered);
    ASSERT_TRUE(test::waitFor([&] { return !browse->searchHits().empty(); }));
    EXPECT_EQ(published_, std::vector<Paths>{{"snare.wav"}});
    ASSERT_TRUE(test::waitFor([&] { return firstSearchCancelled_ != -1; }));
    EXPECT_EQ(firstSearchCancelled_, 1);
}

TEST_F(BrowseSessionViewModelTest, BlankQueryClearsTheHitsAndTheCutAndANewTreeClearsThemToo) {
    Paths kicks;
    for (int at = 0; at < 501; ++at) kicks.push_back("kick" + std::to_string(1000 + at) + ".wav");
    auto browse = session(0ms);
    browse->openTree("/version", filesAtTheTop(kicks));
    browse->setSearchQuery("kick");
    ASSERT_TRUE(waitForPublications(1));
    EXPECT_EQ(browse->searchHits().size(), 500u);
    EXPECT_TRUE(browse->searchTruncated());

    browse->setSearchQuery(" \t ");
    ASSERT_TRUE(waitForPublications(2));
    EXPECT_TRUE(browse->searchHits().empty());
    EXPECT_FALSE(browse->searchTruncated());
    EXPECT_FALSE(browse->isSearchActive());

    browse->setSearchFilter(BrowseSearchFilter::samples);
    ASSERT_TRUE(waitForPublications(3));
    EXPECT_TRUE(browse->searchTruncated());
    int cleared = 0;
    QObject::connect(browse.get(), &BrowseSessionViewModel::searchTruncatedChanged, [&] { ++cleared; });
    browse->openTree("/other", filesAtTheTop({"kick.wav"}));
    EXPECT_TRUE(browse->searchHits().empty());
    EXPECT_FALSE(browse->searchTruncated());
    EXPECT_EQ(cleared, 1);
}

TEST_F(BrowseSessionViewModelTest, UnusedBuildsTheUsageIndexOncePerTree) {
    test::TempDir temp;
    const fs::path version = temp / "backup-2026-01-01-100000";
    test::writeFile(version / "Songs/SONG.m8s", test::songWithSamples({"/Samples/used.wav"}));
    for (const auto* file :
         {"Samples/used.wav", "Samples/spare.wav", "Samples/spare one.wav", "Renders/spare.wav"})
        test::writeFile(version / file, "RIFF");
    auto browse = session(0ms);
    browse->openTree(version, loadFileTree(version));

    browse->setSearchFilterText("unused");
    ASSERT_TRUE(waitForPublications(1));
    browse->setSearchQueryText("one");
    ASSERT_TRUE(waitForPublications(2));
    EXPECT_EQ(published_, (std::vector<Paths>{{"Samples/spare one.wav", "Samples/spare.wav"},
                                              {"Samples/spare one.wav"}}));
    EXPECT_EQ(indexBuilds_, 1);

    browse->openTree(version, loadFileTree(version));
    browse->setSearchQuery("");
    ASSERT_TRUE(waitForPublications(3));
    EXPECT_EQ(indexBuilds_, 2);
}

TEST_F(BrowseSessionViewModelTest, ScreenReadsTheFilterByRawValueAndEachHitAsAMap) {
    auto browse = session(0ms);
    browse->openTree("/version", filesAtTheTop({"kick.wav"}));
    browse->setSearchFilterText("samples");
    EXPECT_EQ(browse->searchFilter(), BrowseSearchFilter::samples);
    browse->setSearchFilterText("Songs");
    EXPECT_EQ(browse->searchFilterText(), "samples");
    ASSERT_TRUE(waitForPublications(1));
    EXPECT_EQ(
        browse->searchHitsVariant(),
        (QVariantList{QVariantMap{
            {"name", "kick.wav"}, {"relativeFolder", ""}, {"path", "kick.wav"}, {"isDirectory", false}}}));
}

}  // namespace
}  // namespace tapekeep
