#include "cli/SearchCommand.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "cli/BrowsedVersion.h"
#include "cli/CliError.h"
#include "cli/Output.h"
#include "content/BrowseSearch.h"
#include "workflows/BrowseSessionViewModel.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

std::string filterChoices() {
    std::string choices;
    for (const auto filter : allBrowseSearchFilters)
        choices += (choices.empty() ? "" : ", ") + rawValue(filter);
    return choices;
}

BrowseSearchFilter filterOf(const std::optional<std::string>& raw) {
    if (!raw) return BrowseSearchFilter::all;
    if (const auto filter = browseSearchFilterNamed(*raw)) return *filter;
    throw UsageError("Unknown filter \"" + *raw + "\". Use one of: " + filterChoices() + ".");
}

std::string queryOf(const std::vector<std::string>& operands) {
    std::string query;
    for (std::size_t at = 2; at < operands.size(); ++at) query += (at > 2 ? " " : "") + operands[at];
    return query;
}

// The search as the Browse tab runs it: the version opened in a session, the query and filter
// set, and the result it publishes awaited.
BrowseSearchResult searchVersion(const fs::path& version, const std::string& query,
                                 BrowseSearchFilter filter) {
    if (!BrowseSearch::isActive(query, filter)) return {};
    BrowseSessionViewModel::Dependencies dependencies;
    dependencies.debounce = std::chrono::milliseconds(0);
    BrowseSessionViewModel session(std::move(dependencies));
    bool published = false;
    QObject::connect(&session, &BrowseSessionViewModel::searchResultsPublished, [&] { published = true; });
    const BackupVersion opened{version, version.filename().string(), std::nullopt, false};
    session.select(
        BrowseVersionSelection{version, {}, BackupSet{version.parent_path(), {}, {}, {opened}}, opened});
    session.setSearchFilter(filter);
    session.setSearchQuery(query);
    BrowsedVersion::waitFor([&] {
        const auto* browser = session.browser();
        return published || (browser->sampleIndexError() && !browser->isBuildingSampleIndex());
    });
    if (!published) throw Error(*session.browser()->sampleIndexError());
    return {session.searchHits(), session.searchTruncated()};
}

}  // namespace

int SearchCommand::run(CliContext& context, Arguments arguments) {
    const auto filter = filterOf(arguments.takeValue("--filter"));
    const auto operands = arguments.operands(2, std::numeric_limits<std::size_t>::max(), usage());
    const fs::path version = context.resolveVersion(context.resolveSet(operands[0]), operands[1]);
    const auto result = searchVersion(version, queryOf(operands), filter);
    if (context.json()) {
        auto hits = nlohmann::json::array();
        for (const auto& hit : result.hits)
            hits.push_back({{"path", hit.relativePath()}, {"isDirectory", hit.node.isDirectory}});
        context.out() << Output::jsonText({{"hits", hits}, {"truncated", result.truncated}}) << '\n';
        return 0;
    }
    for (const auto& hit : result.hits) context.out() << Output::plainText(hit.relativePath()) << '\n';
    if (result.truncated)
        context.out() << "Only the first " << BrowseSearch::hitLimit
                      << " hits are shown; narrow the search.\n";
    return 0;
}

}  // namespace tapekeep::cli
