#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "content/BrowseSearch.h"
#include "core/BackupSet.h"
#include "core/NotificationCenter.h"
#include "core/SDCard.h"
#include "edits/EditEntry.h"
#include "workflows/BackgroundWork.h"
#include "workflows/BackupBrowserViewModel.h"
#include "workflows/BrowseVersionSelection.h"
#include "workflows/PendingEditTally.h"

namespace tapekeep {

// The Browse tab: the backup sets and their versions, the version that is open with the folder
// shown and the file in the preview, and the search over that version.
//
// Lives on the GUI thread. It owns one BackupBrowserViewModel for the open version and makes a new
// one when another version is chosen. Each change of query or filter cancels the running search
// and waits 0.2 seconds before starting the next, so typing runs one search; the walk runs on a
// background task over the tree the browser loaded, and its result is shown only if that task was
// not cancelled and the query, the filter and the browser are still the ones it started with.
// The pending edits of every set are counted again after each load of the sets and whenever the
// edit storage of the base folder changes; the count runs on a background task and the newest one
// wins.
class BrowseSessionViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList availableSets READ availableSetsVariant NOTIFY availableSetsChanged)
    Q_PROPERTY(QStringList openSetIDs READ openSetIDsVariant NOTIFY openSetIDsChanged)
    Q_PROPERTY(QString selectedVersionID READ selectedVersionIDText NOTIFY selectionChanged)
    Q_PROPERTY(bool isLoadingSets READ isLoadingSets NOTIFY isLoadingSetsChanged)
    Q_PROPERTY(QVariant loadError READ loadErrorVariant NOTIFY loadErrorChanged)
    Q_PROPERTY(QObject* browser READ browserObject NOTIFY selectionChanged)
    Q_PROPERTY(QVariantList path READ pathVariant NOTIFY pathChanged)
    Q_PROPERTY(QVariantList folderEntries READ folderEntriesVariant NOTIFY folderEntriesChanged)
    Q_PROPERTY(QVariantMap previewNode READ previewNodeVariant NOTIFY previewChanged)
    Q_PROPERTY(bool hasPreviewOverride READ hasPreviewOverride NOTIFY previewChanged)
    Q_PROPERTY(bool canCopyToCard READ canCopyToCard NOTIFY canCopyToCardChanged)
    Q_PROPERTY(QString searchQuery READ searchQueryText WRITE setSearchQueryText NOTIFY searchQueryChanged)
    Q_PROPERTY(
        QString searchFilter READ searchFilterText WRITE setSearchFilterText NOTIFY searchFilterChanged)
    Q_PROPERTY(QVariantList searchHits READ searchHitsVariant NOTIFY searchHitsChanged)
    Q_PROPERTY(bool searchTruncated READ searchTruncated NOTIFY searchTruncatedChanged)
    Q_PROPERTY(bool isSearchActive READ isSearchActive NOTIFY searchActiveChanged)
    Q_PROPERTY(QVariantMap pendingEditCounts READ pendingEditCountsVariant NOTIFY pendingEditsChanged)
    Q_PROPERTY(QVariantMap pendingEditPerVersion READ pendingEditPerVersionVariant NOTIFY pendingEditsChanged)
    Q_PROPERTY(
        QVariantMap pendingFilesPerVersion READ pendingFilesPerVersionVariant NOTIFY pendingEditsChanged)

public:
    using Search =
        std::function<BrowseSearchResult(const std::vector<FileNode>&, std::string_view, BrowseSearchFilter,
                                         const UnusedSampleLookup*, std::stop_token)>;
    // The pending edits of one set (by its folder name) in the edit storage of a base folder.
    using PendingEditsReader =
        std::function<std::vector<EditEntry>(const std::filesystem::path& base, const std::string& root)>;
    using BrowserFactory =
        std::function<std::unique_ptr<BackupBrowserViewModel>(const BrowseVersionSelection& selection)>;

    struct Dependencies {
        std::chrono::milliseconds debounce{200};
        Search search = &BrowseSearch::search;
        std::function<std::filesystem::path()> baseFolder;  // read at each load of the sets
        std::function<std::string()> rsyncPath;             // read at each selection
        // Default: a browser of the version with browserDependencies.
        BrowserFactory makeBrowser;
        BackupBrowserViewModel::Dependencies browserDependencies;
        // The cards mounted now, for the copy back to the card a set was made from.
        std::function<std::vector<SDCard>()> detectedCards;
        PendingEditsReader pendingEdits;  // default: EditManifestStore's
    };

    explicit BrowseSessionViewModel(Dependencies dependencies, QObject* parent = nullptr);
    ~BrowseSessionViewModel() override;

    // --- The sets ---
    Q_INVOKABLE void loadSets();
    [[nodiscard]] const std::vector<BackupSet>& availableSets() const { return availableSets_; }
    [[nodiscard]] bool isLoadingSets() const { return isLoadingSets_; }
    [[nodiscard]] const std::optional<std::string>& loadError() const { return loadError_; }
    Q_INVOKABLE void toggleSet(const QString& folderName);

    // --- Pending edits of the sets listed ---
    // Counts them again; the sets' load and a change of the edit storage do so by themselves.
    Q_INVOKABLE void refreshPendingEdits();
    [[nodiscard]] const PendingEditTally& pendingEdits() const { return pendingEdits_; }

    // --- The open version ---
    // A selection equal to the current one changes nothing.
    void select(const BrowseVersionSelection& selection);
    // The version of a listed set by folder names; unknown names change nothing.
    Q_INVOKABLE void selectVersion(const QString& setFolderName, const QString& versionFolderName);
    [[nodiscard]] const std::optional<BrowseVersionSelection>& selection() const { return selection_; }
    [[nodiscard]] BackupBrowserViewModel* browser() const { return browser_.get(); }

    // --- The folder shown and the preview ---
    [[nodiscard]] const std::vector<FileNode>& path() const { return path_; }
    // The entries of the folder shown: the version's top level when the path is empty.
    [[nodiscard]] const std::vector<FileNode>& folderEntries() const;
    // An entry of the folder shown, by name: a folder is opened, a file previewed.
    Q_INVOKABLE void activateEntry(const QString& name);
    // Keeps the first `depth` folders of the path (0: the version's top level).
    Q_INVOKABLE void goToDepth(int depth);
    void selectNode(const std::optional<FileNode>& node);
    [[nodiscard]] const std::optional<FileNode>& selectedNode() const { return selectedNode_; }
    // Shows the file a sample path of the previewed song names, without changing the selection.
    Q_INVOKABLE void previewSample(const QString& storedPath);
    Q_INVOKABLE void clearPreviewOverride();
    [[nodiscard]] const std::optional<FileNode>& previewOverride() const { return previewOverride_; }
    [[nodiscard]] bool hasPreviewOverride() const { return previewOverride_.has_value(); }

    // --- Search ---
    void setSearchQuery(std::string query);
    void setSearchFilter(BrowseSearchFilter filter);
    [[nodiscard]] const std::string& searchQuery() const { return searchQuery_; }
    [[nodiscard]] BrowseSearchFilter searchFilter() const { return searchFilter_; }
    [[nodiscard]] const std::vector<BrowseSearchHit>& searchHits() const { return searchHits_; }
    [[nodiscard]] bool searchTruncated() const { return searchTruncated_; }
    [[nodiscard]] bool isSearchActive() const { return BrowseSearch::isActive(searchQuery_, searchFilter_); }
    // Shows the hit's folder, then opens the hit: a folder is shown, a file previewed. A hit whose
    // folders are no longer in the tree changes nothing.
    void openHit(const BrowseSearchHit& hit);
    Q_INVOKABLE void openHitAt(int index);

    // --- Copy back to the card ---
    // The mounted card the open version's set was made from; nothing when it is not mounted.
    [[nodiscard]] std::optional<SDCard> cardOfSelection() const;
    [[nodiscard]] bool canCopyToCard() const;
    // Copies the file in the preview (or the folder shown, when no file is) back to the card.
    Q_INVOKABLE void copyToCard();
    // Asks again which cards are mounted; the screen calls it when the list of cards changed.
    Q_INVOKABLE void refreshCards();

    [[nodiscard]] QVariantList availableSetsVariant() const;
    [[nodiscard]] QStringList openSetIDsVariant() const;
    [[nodiscard]] QString selectedVersionIDText() const;
    [[nodiscard]] QVariant loadErrorVariant() const;
    [[nodiscard]] QObject* browserObject() const { return browser_.get(); }
    [[nodiscard]] QVariantList pathVariant() const;
    [[nodiscard]] QVariantList folderEntriesVariant() const;
    [[nodiscard]] QVariantMap previewNodeVariant() const;
    [[nodiscard]] QString searchQueryText() const;
    void setSearchQueryText(const QString& query);
    // The filter's raw value; an unknown one is ignored.
    [[nodiscard]] QString searchFilterText() const;
    void setSearchFilterText(const QString& raw);
    // A list of {"name", "relativeFolder", "path", "isDirectory"} maps.
    [[nodiscard]] QVariantList searchHitsVariant() const;
    // Set folder name -> count; set -> version folder name -> count; set -> version -> card paths.
    [[nodiscard]] QVariantMap pendingEditCountsVariant() const;
    [[nodiscard]] QVariantMap pendingEditPerVersionVariant() const;
    [[nodiscard]] QVariantMap pendingFilesPerVersionVariant() const;

signals:
    void availableSetsChanged();
    void openSetIDsChanged();
    void isLoadingSetsChanged();
    void loadErrorChanged();
    void selectionChanged();
    void pathChanged();
    void folderEntriesChanged();
    void previewChanged();
    void canCopyToCardChanged();
    void searchQueryChanged();
    void searchFilterChanged();
    void searchHitsChanged();
    void searchTruncatedChanged();
    void searchActiveChanged();
    void pendingEditsChanged();
    // Not a property: the moment a search's result was put on show.
    void searchResultsPublished();

private:
    struct Outcome {
        std::string query;
        BrowseSearchFilter filter;
        const BackupBrowserViewModel* browser;
        BrowseSearchResult result;
    };

    void applySets(const std::string& generation, std::vector<BackupSet> sets,
                   std::optional<std::string> error);
    void setPath(std::vector<FileNode> path);
    void restartSearch();
    void startSearch();
    void runWalk();
    void publish(Outcome outcome, const std::stop_token& token);
    void cancelSearch();
    void setResults(std::vector<BrowseSearchHit> hits, bool truncated);
    void queryOrFilterChanged(bool wasActive);
    std::optional<FileNode> nodeAt(const std::filesystem::path& url) const;
    void editsChanged(const std::string& baseFolder);
    void publishPendingEdits(std::uint64_t generation, PendingEditTally tally);

    Dependencies dependencies_;

    std::vector<BackupSet> availableSets_;
    std::set<std::string> openSetIDs_;
    bool isLoadingSets_ = false;
    std::optional<std::string> loadError_;
    std::string loadGeneration_;
    std::optional<std::filesystem::path> loadedRoot_;
    std::vector<SDCard> detectedCards_;
    PendingEditTally pendingEdits_;
    std::uint64_t pendingEditsGeneration_ = 0;
    NotificationCenter::Token editsObserver_ = 0;

    std::optional<BrowseVersionSelection> selection_;
    std::unique_ptr<BackupBrowserViewModel> browser_;
    std::vector<FileNode> path_;
    std::optional<FileNode> selectedNode_;
    std::optional<FileNode> previewOverride_;

    std::string searchQuery_;
    BrowseSearchFilter searchFilter_ = BrowseSearchFilter::all;
    std::vector<BrowseSearchHit> searchHits_;
    bool searchTruncated_ = false;
    QTimer debounce_;
    bool awaitingIndex_ = false;  // the running search waits for the browser's usage index
    std::optional<BackgroundTasks::Id> searchTask_;
    BackgroundWork work_;  // last: gone first, with its tasks stopped
};

}  // namespace tapekeep
