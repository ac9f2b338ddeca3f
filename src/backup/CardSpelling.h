#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "backup/CardPath.h"

namespace tapekeep {

// Finds the entry of a card that a card-relative path means, without regard to letter case, and
// names it as the card spells it. The card's FAT file system ignores case but the version folder on
// the backup drive does not: a path copied in another spelling would become a second folder there.
// An entry reached through a symbolic link is never taken, so nothing outside the card is read.
//
// Each folder is listed once per instance; one instance serves one selection of one run.
class CardSpelling {
public:
    explicit CardSpelling(std::filesystem::path card) : card_(std::move(card)) {}

    CardPath locate(std::string_view relativePath);

private:
    const std::vector<std::string>& namesIn(const std::string& relativeFolder);
    const std::string* matchingName(const std::string& relativeFolder, std::string_view name);

    std::filesystem::path card_;
    std::unordered_map<std::string, std::vector<std::string>> listings_;
};

}  // namespace tapekeep
