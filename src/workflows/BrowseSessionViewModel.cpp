#include "workflows/BrowseSessionViewModel.h"

#include <algorithm>

#include "backup/BackupRepository.h"
#include "content/FileNodeLookup.h"
#include "content/SampleReferences.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Log.h"
#include "core/Uuid.h"
#include "edits/EditManifestStore.h"
#include "workflows/QmlValues.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

const Log& log() {
    static const Log instance("BrowseSessionViewModel");
    return instance;
}

std::vector<std::string> folderNames(const std::string& relativeFolder) {
    std::vector<std::string> names;
    std::size_t start = 0;
    while (start <= relativeFolder.size()) {
        const auto end = std::min(relativeFolder.find('/', start), relativeFolder.size());
        if (end > start) names.push_back(relativeFolder.substr(start, end - start));
        start = end + 1;
    }
    return names;
}

// One folder whether or not its name ends in a separator.
bool sameFolder(const fs::path& one, const fs::path& other) {
    return (one / "").lexically_normal() == (other / "").lexically_normal();
}

}  // namespace

BrowseSessionViewModel::BrowseSessionViewModel(Dependencies dependencies, QObject* parent)
    : QObject(parent), dependencies_(std::move(dependencies)), work_(this) {
    if (!dependencies_.makeBrowser)
        dependencies_.makeBrowser = [browserDependencies = dependencies_.browserDependencies](
                                        const BrowseVersionSelection& selection) {
            return std::make_unique<BackupBrowserViewModel>(selection.versionURL, selection.rsyncPath,
                                                            browserDependencies);
        };
    debounce_.setSingleShot(true);
    debounce_.setTimerType(Qt::PreciseTimer);
    debounce_.setInterval(dependencies_.debounce);
    connect(&debounce_, &QTimer::timeout, this, &BrowseSessionViewModel::startSearch);
    if (!dependencies_.pendingEdits)
        dependencies_.pendingEdits = [](const fs::path& base, const std::string& root) {
            return EditManifestStore(base).pendingEdits(root);
        };
    // The store posts on the thread that changed the storage.
    editsObserver_ = NotificationCenter::defaultCenter().addObserver(
        Notifications::editsDidChange, [this, poster = work_.poster()](const std::string& base) {
            poster->post([this, base] { editsChanged(base); });
        });
}

BrowseSessionViewModel::~BrowseSessionViewModel() {
    NotificationCenter::defaultCenter().removeObserver(editsObserver_);
}

// --- The sets ---

void BrowseSessionViewModel::loadSets() {
    if (!dependencies_.baseFolder) return;
    const auto root = dependencies_.baseFolder().lexically_normal();
    loadGeneration_ = makeUuid();
    loadedRoot_ = root;
    if (!isLoadingSets_) {
        isLoadingSets_ = true;
        emit isLoadingSetsChanged();
    }
    work_.tasks().start([this, generation = loadGeneration_, root, poster = work_.poster()](std::stop_token) {
        std::vector<BackupSet> sets;
        std::optional<std::string> error;
        try {
            sets = BackupRepository(root).listSets();
        } catch (const std::exception& failure) {
            error = failure.what();
        }
        poster->post([this, generation, sets = std::move(sets), error = std::move(error)]() mutable {
            applySets(generation, std::move(sets), std::move(error));
        });
    });
    refreshCards();
}

void BrowseSessionViewModel::applySets(const std::string& generation, std::vector<BackupSet> sets,
                                       std::optional<std::string> error) {
    if (generation != loadGeneration_) return;
    if (error) log().error("Listing backup sets failed: " + *error);
    availableSets_ = std::move(sets);
    emit availableSetsChanged();
    if (error != loadError_) {
        loadError_ = std::move(error);
        emit loadErrorChanged();
    }
    isLoadingSets_ = false;
    emit isLoadingSetsChanged();
    refreshPendingEdits();
}

// --- Pending edits ---

void BrowseSessionViewModel::editsChanged(const std::string& baseFolder) {
    if (loadedRoot_ && sameFolder(baseFolder, *loadedRoot_)) refreshPendingEdits();
}

// A set whose storage cannot be read counts as having none; the failure goes to the log.
void BrowseSessionViewModel::refreshPendingEdits() {
    if (!loadedRoot_) return;
    std::vector<std::string> roots;
    for (const auto& set : availableSets_) roots.push_back(set.folderName);
    const auto generation = ++pendingEditsGeneration_;
    work_.tasks().start([this, generation, base = *loadedRoot_, roots = std::move(roots),
                         read = dependencies_.pendingEdits, poster = work_.poster()](std::stop_token token) {
        std::map<std::string, std::vector<EditEntry>> pending;
        for (const auto& root : roots) {
            if (token.stop_requested()) return;
            try {
                pending[root] = read(base, root);
            } catch (const std::exception& error) {
                log().error("Reading the pending edits of " + root + " failed: " + describe(error));
            }
        }
        poster->post([this, generation, tally = PendingEditTally::of(pending)]() mutable {
            publishPendingEdits(generation, std::move(tally));
        });
    });
}

void BrowseSessionViewModel::publishPendingEdits(std::uint64_t generation, PendingEditTally tally) {
    if (generation != pendingEditsGeneration_ || tally == pendingEdits_) return;
    pendingEdits_ = std::move(tally);
    emit pendingEditsChanged();
}

void BrowseSessionViewModel::toggleSet(const QString& folderName) {
    const auto name = folderName.toStdString();
    if (!openSetIDs_.erase(name)) openSetIDs_.insert(name);
    emit openSetIDsChanged();
}

// --- The open version ---

void BrowseSessionViewModel::selectVersion(const QString& setFolderName, const QString& versionFolderName) {
    const auto set = std::find_if(availableSets_.begin(), availableSets_.end(), [&](const BackupSet& s) {
        return s.folderName == setFolderName.toStdString();
    });
    if (set == availableSets_.end()) return;
    const auto version =
        std::find_if(set->versions.begin(), set->versions.end(),
                     [&](const BackupVersion& v) { return v.folderName == versionFolderName.toStdString(); });
    if (version == set->versions.end()) return;
    const auto rsync = dependencies_.rsyncPath ? dependencies_.rsyncPath() : std::string();
    select(BrowseVersionSelection{version->url, rsync, *set, *version});
}

void BrowseSessionViewModel::select(const BrowseVersionSelection& selection) {
    if (selection_ && *selection_ == selection) return;
    cancelSearch();
    selection_ = selection;
    browser_ = dependencies_.makeBrowser(selection);
    connect(browser_.get(), &BackupBrowserViewModel::rootNodesChanged, this, [this] {
        emit folderEntriesChanged();
        // A search typed while the tree was still loading ran over nothing.
        if (browser_->isTreeLoaded() && isSearchActive()) restartSearch();
    });
    connect(browser_.get(), &BackupBrowserViewModel::sampleIndexFinished, this, [this] {
        if (!awaitingIndex_) return;
        awaitingIndex_ = false;
        if (browser_->sampleIndexBuilt()) runWalk();
    });
    path_.clear();
    selectedNode_.reset();
    previewOverride_.reset();
    setResults({}, false);
    browser_->loadTree();
    emit selectionChanged();
    emit pathChanged();
    emit folderEntriesChanged();
    emit previewChanged();
    emit canCopyToCardChanged();
}

// --- The folder shown and the preview ---

const std::vector<FileNode>& BrowseSessionViewModel::folderEntries() const {
    static const std::vector<FileNode> none;
    if (!path_.empty()) return path_.back().children ? *path_.back().children : none;
    return browser_ ? *browser_->rootNodes() : none;
}

void BrowseSessionViewModel::setPath(std::vector<FileNode> path) {
    path_ = std::move(path);
    emit pathChanged();
    emit folderEntriesChanged();
}

void BrowseSessionViewModel::activateEntry(const QString& name) {
    const auto& entries = folderEntries();
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&](const FileNode& node) { return node.name == name.toStdString(); });
    if (found == entries.end()) return;
    if (!found->isDirectory) {
        selectNode(*found);
        return;
    }
    auto deeper = path_;
    deeper.push_back(*found);
    setPath(std::move(deeper));
    selectNode(std::nullopt);
}

void BrowseSessionViewModel::goToDepth(int depth) {
    if (depth < 0 || static_cast<std::size_t>(depth) >= path_.size()) return;
    setPath(std::vector<FileNode>(path_.begin(), path_.begin() + depth));
    selectNode(std::nullopt);
}

void BrowseSessionViewModel::selectNode(const std::optional<FileNode>& node) {
    selectedNode_ = node;
    previewOverride_.reset();
    if (browser_) browser_->select(node);
    emit previewChanged();
}

void BrowseSessionViewModel::previewSample(const QString& storedPath) {
    if (!browser_ || !selectedNode_) return;
    try {
        for (const auto& candidate : BrowseFileService::sampleCandidates(
                 storedPath.toStdString(), selectedNode_->url, browser_->versionURL()))
            if (const auto node = nodeAt(candidate.url)) {
                previewOverride_ = node;
                browser_->select(node);
                emit previewChanged();
                return;
            }
    } catch (const Error&) {
        // A path that leads nowhere inside the version has nothing to show.
    }
}

void BrowseSessionViewModel::clearPreviewOverride() {
    if (!previewOverride_) return;
    previewOverride_.reset();
    if (browser_) browser_->select(selectedNode_);
    emit previewChanged();
}

std::optional<FileNode> BrowseSessionViewModel::nodeAt(const fs::path& url) const {
    if (!browser_ || !BrowseFileService::isInside(url, browser_->versionURL())) return std::nullopt;
    const auto below = url.lexically_normal().lexically_relative(browser_->versionURL().lexically_normal());
    std::vector<std::string> names;
    for (const auto& part : below) names.push_back(part.string());
    const auto nodes = FileNodeLookup::chain(browser_->rootNodes().get(), names);
    if (!nodes || nodes->empty() || nodes->back()->isDirectory) return std::nullopt;
    return *nodes->back();
}

// --- Search ---

void BrowseSessionViewModel::setSearchQuery(std::string query) {
    if (query == searchQuery_) return;
    const bool wasActive = isSearchActive();
    searchQuery_ = std::move(query);
    emit searchQueryChanged();
    queryOrFilterChanged(wasActive);
}

void BrowseSessionViewModel::setSearchFilter(BrowseSearchFilter filter) {
    if (filter == searchFilter_) return;
    const bool wasActive = isSearchActive();
    searchFilter_ = filter;
    emit searchFilterChanged();
    queryOrFilterChanged(wasActive);
}

void BrowseSessionViewModel::queryOrFilterChanged(bool wasActive) {
    if (wasActive != isSearchActive()) emit searchActiveChanged();
    restartSearch();
}

void BrowseSessionViewModel::cancelSearch() {
    if (searchTask_) work_.tasks().cancel(*searchTask_);
    searchTask_.reset();
    debounce_.stop();
    awaitingIndex_ = false;
}

// The timer starts over at each change, so a burst of typing ends in one search.
void BrowseSessionViewModel::restartSearch() {
    cancelSearch();
    debounce_.start();
}

void BrowseSessionViewModel::startSearch() {
    // Before the tree is there a walk would find nothing; its arrival starts the search again.
    if (!browser_ || !browser_->isTreeLoaded()) return;
    if (searchFilter_ == BrowseSearchFilter::unused && !browser_->sampleIndexBuilt()) {
        // The walk goes on when the browser's one build of the index ends, and not at all if it failed.
        awaitingIndex_ = true;
        browser_->buildSampleIndex();
        return;
    }
    runWalk();
}

void BrowseSessionViewModel::runWalk() {
    const auto usage = searchFilter_ == BrowseSearchFilter::unused ? browser_->sampleUsage() : nullptr;
    searchTask_ = work_.tasks().start([this, query = searchQuery_, filter = searchFilter_,
                                       browser = browser_.get(), roots = browser_->rootNodes(), usage,
                                       search = dependencies_.search,
                                       poster = work_.poster()](std::stop_token token) mutable {
        try {
            auto result = search(*roots, query, filter, usage.get(), token);
            poster->post([this, token,
                          outcome = Outcome{std::move(query), filter, browser, std::move(result)}]() mutable {
                publish(std::move(outcome), token);
            });
        } catch (const Cancelled&) {
        } catch (const std::exception& error) {
            log().error(std::string("Search failed: ") + error.what());
        }
    });
}

void BrowseSessionViewModel::publish(Outcome outcome, const std::stop_token& token) {
    const bool stale = token.stop_requested() || outcome.query != searchQuery_ ||
                       outcome.filter != searchFilter_ || outcome.browser != browser_.get();
    if (stale) return;
    setResults(std::move(outcome.result.hits), outcome.result.truncated);
    emit searchResultsPublished();
}

void BrowseSessionViewModel::setResults(std::vector<BrowseSearchHit> hits, bool truncated) {
    searchHits_ = std::move(hits);
    emit searchHitsChanged();
    if (truncated == searchTruncated_) return;
    searchTruncated_ = truncated;
    emit searchTruncatedChanged();
}

void BrowseSessionViewModel::openHit(const BrowseSearchHit& hit) {
    if (!browser_) return;
    const auto folders = FileNodeLookup::chain(browser_->rootNodes().get(), folderNames(hit.relativeFolder));
    if (!folders || std::ranges::any_of(*folders, [](const FileNode* node) { return !node->isDirectory; }))
        return;
    std::vector<FileNode> chain;
    for (const FileNode* folder : *folders) chain.push_back(*folder);
    if (hit.node.isDirectory) {
        chain.push_back(hit.node);
        setPath(std::move(chain));
        selectNode(std::nullopt);
        return;
    }
    setPath(std::move(chain));
    selectNode(hit.node);
}

void BrowseSessionViewModel::openHitAt(int index) {
    if (index >= 0 && static_cast<std::size_t>(index) < searchHits_.size()) openHit(searchHits_[index]);
}

// --- Copy back to the card ---

void BrowseSessionViewModel::refreshCards() {
    if (!dependencies_.detectedCards) return;
    detectedCards_ = dependencies_.detectedCards();
    emit canCopyToCardChanged();
}

std::optional<SDCard> BrowseSessionViewModel::cardOfSelection() const {
    if (!selection_) return std::nullopt;
    const auto found = std::find_if(detectedCards_.begin(), detectedCards_.end(), [&](const SDCard& card) {
        return backupSetFolderName(card.volumeName, card.diskUtilUUID) == selection_->backupSet.folderName;
    });
    return found == detectedCards_.end() ? std::nullopt : std::optional(*found);
}

bool BrowseSessionViewModel::canCopyToCard() const {
    return cardOfSelection().has_value();
}

void BrowseSessionViewModel::copyToCard() {
    const auto card = cardOfSelection();
    const auto& node = previewOverride_ ? previewOverride_ : selectedNode_;
    if (!browser_ || !card) return;
    if (node) {
        browser_->copyToCard(*node, *card);
    } else if (!path_.empty()) {
        browser_->copyToCard(path_.back(), *card);
    }
}

// --- What the screen reads ---

QVariantList BrowseSessionViewModel::availableSetsVariant() const {
    return QmlValues::listOf(availableSets_, QmlValues::backupSet);
}

QStringList BrowseSessionViewModel::openSetIDsVariant() const {
    return QmlValues::textList(openSetIDs_);
}

QString BrowseSessionViewModel::selectedVersionIDText() const {
    return selection_ ? QmlValues::text(selection_->versionURL.string()) : QString();
}

QVariant BrowseSessionViewModel::loadErrorVariant() const {
    return QmlValues::optionalText(loadError_);
}

QVariantList BrowseSessionViewModel::pathVariant() const {
    return QmlValues::listOf(path_, QmlValues::fileNode);
}

QVariantList BrowseSessionViewModel::folderEntriesVariant() const {
    return QmlValues::listOf(folderEntries(), QmlValues::fileNode);
}

QVariantMap BrowseSessionViewModel::previewNodeVariant() const {
    const auto& node = previewOverride_ ? previewOverride_ : selectedNode_;
    return node ? QmlValues::fileNode(*node) : QVariantMap{};
}

QString BrowseSessionViewModel::searchQueryText() const {
    return QmlValues::text(searchQuery_);
}

void BrowseSessionViewModel::setSearchQueryText(const QString& query) {
    setSearchQuery(query.toStdString());
}

QString BrowseSessionViewModel::searchFilterText() const {
    return QmlValues::text(rawValue(searchFilter_));
}

void BrowseSessionViewModel::setSearchFilterText(const QString& raw) {
    if (const auto filter = browseSearchFilterNamed(raw.toStdString())) setSearchFilter(*filter);
}

QVariantList BrowseSessionViewModel::searchHitsVariant() const {
    return QmlValues::listOf(searchHits_, [](const BrowseSearchHit& hit) {
        return QVariantMap{{"name", QmlValues::text(hit.node.name)},
                           {"relativeFolder", QmlValues::text(hit.relativeFolder)},
                           {"path", QmlValues::text(hit.relativePath())},
                           {"isDirectory", hit.node.isDirectory}};
    });
}

QVariantMap BrowseSessionViewModel::pendingEditCountsVariant() const {
    return QmlValues::mapOf(pendingEdits_.perSet, [](int count) { return QVariant(count); });
}

QVariantMap BrowseSessionViewModel::pendingEditPerVersionVariant() const {
    return QmlValues::mapOf(pendingEdits_.perVersion, [](const std::map<std::string, int>& versions) {
        return QVariant(QmlValues::mapOf(versions, [](int count) { return QVariant(count); }));
    });
}

QVariantMap BrowseSessionViewModel::pendingFilesPerVersionVariant() const {
    return QmlValues::mapOf(
        pendingEdits_.filesPerVersion, [](const std::map<std::string, std::vector<std::string>>& versions) {
            return QVariant(QmlValues::mapOf(
                versions, [](const auto& files) { return QVariant(QmlValues::textList(files)); }));
        });
}

}  // namespace tapekeep
