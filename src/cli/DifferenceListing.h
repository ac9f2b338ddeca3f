#pragma once

#include <ostream>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/FileDiff.h"

namespace tapekeep::cli::DifferenceListing {

// {"added":[…],"modified":[…],"deleted":[…]}: the paths of each kind in the order given; every
// list is present, empty when nothing is of that kind.
nlohmann::json json(const std::vector<FileDiff>& differences);

// One "kind<TAB>path" line per difference, the path shown safely.
void print(std::ostream& out, const std::vector<FileDiff>& differences);

}  // namespace tapekeep::cli::DifferenceListing
