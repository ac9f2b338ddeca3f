#include "cli/DifferenceListing.h"

#include <map>
#include <string>

#include "cli/Output.h"

namespace tapekeep::cli::DifferenceListing {

nlohmann::json json(const std::vector<FileDiff>& differences) {
    std::map<FileDiff::Kind, std::vector<std::string>> paths;
    for (const auto& difference : differences) paths[difference.kind].push_back(difference.path);
    return {{"added", paths[FileDiff::Kind::added]},
            {"modified", paths[FileDiff::Kind::modified]},
            {"deleted", paths[FileDiff::Kind::deleted]}};
}

void print(std::ostream& out, const std::vector<FileDiff>& differences) {
    for (const auto& difference : differences)
        out << FileDiff::rawValue(difference.kind) << '\t' << Output::plainText(difference.path) << '\n';
}

}  // namespace tapekeep::cli::DifferenceListing
