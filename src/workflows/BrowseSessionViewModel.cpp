#include "workflows/BrowseSessionViewModel.h"

#include "core/Cancelled.h"
#include "core/Log.h"
#include "workflows/QmlValues.h"

namespace tapekeep {

BrowseSessionViewModel::BrowseSessionViewModel(QObject* parent)
    : BrowseSessionViewModel(Dependencies{}, parent) {}

BrowseSessionViewModel::BrowseSessionViewModel(Dependencies dependencies, QObject* parent)
    : QObject(parent), dependencies_(std::move(dependencies)), work_(this) {
    debounce_.setSingleShot(true);
    debounce_.setTimerType(Qt::PreciseTimer);
    debounce_.setInterval(dependencies_.debounce);
    connect(&debounce_, &QTimer::timeout, this, &BrowseSessionViewModel::startSearch);
}

void BrowseSessionViewModel::openTree(std::filesystem::path versionPath, std::vector<FileNode> roots) {
    if (searchTask_) work_.tasks().cancel(*searchTask_);
    searchTask_.reset();
    debounce_.stop();
    tree_ = std::make_shared<const OpenTree>(OpenTree{std::move(versionPath), std::move(roots)});
    usage_.reset();
    setResults({}, false);
}

void BrowseSessionViewModel::setSearchQuery(std::string query) {
    if (query == searchQuery_) return;
    searchQuery_ = std::move(query);
    emit searchQueryChanged();
    restartSearch();
}

void BrowseSessionViewModel::setSearchFilter(BrowseSearchFilter filter) {
    if (filter == searchFilter_) return;
    searchFilter_ = filter;
    emit searchFilterChanged();
    restartSearch();
}

// The timer starts over at each change, so a burst of typing ends in one search.
void BrowseSessionViewModel::restartSearch() {
    if (searchTask_) work_.tasks().cancel(*searchTask_);
    searchTask_.reset();
    debounce_.start();
}

void BrowseSessionViewModel::startSearch() {
    if (!tree_) return;
    searchTask_ =
        work_.tasks().start([this, query = searchQuery_, filter = searchFilter_, tree = tree_, usage = usage_,
                             search = dependencies_.search, buildUsageIndex = dependencies_.buildUsageIndex,
                             poster = work_.poster()](std::stop_token token) mutable {
            try {
                if (filter == BrowseSearchFilter::unused && !usage)
                    usage = std::make_shared<const UnusedSampleLookup>(
                        UnusedSampleLookup{tree->versionPath, buildUsageIndex(tree->versionPath, token)});
                auto result = search(tree->roots, query, filter, usage.get(), token);
                poster->post(
                    [this, token,
                     outcome = Outcome{std::move(query), filter, std::move(tree), std::move(usage),
                                       std::move(result)}]() mutable { publish(std::move(outcome), token); });
            } catch (const Cancelled&) {
            } catch (const std::exception& error) {
                // Without a usage index there is nothing to say about unused samples: the results stay.
                static const Log log("BrowseSessionViewModel");
                log.error(std::string("Search failed: ") + error.what());
            }
        });
}

void BrowseSessionViewModel::publish(Outcome outcome, const std::stop_token& token) {
    const bool stale = token.stop_requested() || outcome.query != searchQuery_ ||
                       outcome.filter != searchFilter_ || outcome.tree != tree_;
    if (stale) return;
    if (!usage_) usage_ = std::move(outcome.usage);
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

}  // namespace tapekeep
