#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantList>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "content/BrowseSearch.h"
#include "content/SampleReferences.h"
#include "workflows/BackgroundWork.h"

namespace tapekeep {

// The search of the Browse tab over the version that is open: the query and filter as the user
// sets them, and the hits on show.
//
// Lives on the GUI thread. Each change of query or filter cancels the running search and waits
// 0.2 seconds before starting the next, so typing runs one search. The walk runs on a background
// task over the tree the browser loaded; its result is shown only if that task was not cancelled
// and the query, the filter and the tree are still the ones it started with.
class BrowseSessionViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString searchQuery READ searchQueryText WRITE setSearchQueryText NOTIFY searchQueryChanged)
    Q_PROPERTY(
        QString searchFilter READ searchFilterText WRITE setSearchFilterText NOTIFY searchFilterChanged)
    Q_PROPERTY(QVariantList searchHits READ searchHitsVariant NOTIFY searchHitsChanged)
    Q_PROPERTY(bool searchTruncated READ searchTruncated NOTIFY searchTruncatedChanged)

public:
    using Search =
        std::function<BrowseSearchResult(const std::vector<FileNode>&, std::string_view, BrowseSearchFilter,
                                         const UnusedSampleLookup*, std::stop_token)>;
    using BuildUsageIndex =
        std::function<BrowseFileService::SampleUsageIndex(const std::filesystem::path&, std::stop_token)>;

    struct Dependencies {
        std::chrono::milliseconds debounce{200};
        Search search = &BrowseSearch::search;
        BuildUsageIndex buildUsageIndex = &BrowseFileService::sampleUsageIndex;
    };

    explicit BrowseSessionViewModel(QObject* parent = nullptr);
    explicit BrowseSessionViewModel(Dependencies dependencies, QObject* parent = nullptr);

    // The open version and the tree its browser loaded. Cancels the running search and clears the
    // results; the sample usage index of the earlier version is dropped.
    void openTree(std::filesystem::path versionPath, std::vector<FileNode> roots);

    void setSearchQuery(std::string query);
    void setSearchFilter(BrowseSearchFilter filter);

    [[nodiscard]] const std::string& searchQuery() const { return searchQuery_; }
    [[nodiscard]] BrowseSearchFilter searchFilter() const { return searchFilter_; }
    [[nodiscard]] const std::vector<BrowseSearchHit>& searchHits() const { return searchHits_; }
    [[nodiscard]] bool searchTruncated() const { return searchTruncated_; }
    [[nodiscard]] bool isSearchActive() const { return BrowseSearch::isActive(searchQuery_, searchFilter_); }

    [[nodiscard]] QString searchQueryText() const;
    void setSearchQueryText(const QString& query);
    // The filter's raw value; an unknown one is ignored.
    [[nodiscard]] QString searchFilterText() const;
    void setSearchFilterText(const QString& raw);
    // A list of {"name", "relativeFolder", "path", "isDirectory"} maps.
    [[nodiscard]] QVariantList searchHitsVariant() const;

signals:
    void searchQueryChanged();
    void searchFilterChanged();
    void searchHitsChanged();
    void searchTruncatedChanged();
    // Not a property: the moment a search's result was put on show.
    void searchResultsPublished();

private:
    struct OpenTree {
        std::filesystem::path versionPath;
        std::vector<FileNode> roots;
    };
    using Lookup = std::shared_ptr<const UnusedSampleLookup>;

    struct Outcome {
        std::string query;
        BrowseSearchFilter filter;
        std::shared_ptr<const OpenTree> tree;
        Lookup usage;
        BrowseSearchResult result;
    };

    void restartSearch();
    void startSearch();
    void publish(Outcome outcome, const std::stop_token& token);
    void setResults(std::vector<BrowseSearchHit> hits, bool truncated);

    Dependencies dependencies_;
    std::string searchQuery_;
    BrowseSearchFilter searchFilter_ = BrowseSearchFilter::all;
    std::vector<BrowseSearchHit> searchHits_;
    bool searchTruncated_ = false;
    std::shared_ptr<const OpenTree> tree_;
    Lookup usage_;  // built once per tree, by the first search that needs it
    QTimer debounce_;
    std::optional<BackgroundTasks::Id> searchTask_;
    BackgroundWork work_;  // last: gone first, with its tasks stopped
};

}  // namespace tapekeep
