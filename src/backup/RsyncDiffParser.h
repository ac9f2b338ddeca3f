#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backup/RsyncVersion.h"
#include "core/FileDiff.h"

// Reads the lines of an rsync dry run with --itemize-changes --out-format=%i<TAB>%n into the
// differences between two trees. A line is a flag field, one separator (the tab, or a blank in
// rsync's default format) and the path as rsync printed it. The flag field is 11 characters wide
// in rsync 3.x and 9 in older builds; "*deleting" lines pad theirs with blanks. Any line that is
// not a change line (statistics, warnings, "building file list ...", unchanged entries) is
// skipped. All functions are pure and may be called from any thread.
namespace tapekeep::RsyncDiffParser {

// The change on one line, or nothing. Folders (a "d" type, or a deleted path ending in "/") are
// kept only with includeDirectories. A path keeps any tab it holds: the separator is the first.
std::optional<FileDiff> parseLine(std::string_view line, bool includeDirectories);

// parseLine over every line, in the order of the input, keeping what it yields.
std::vector<FileDiff> parse(const std::vector<std::string>& lines, bool includeDirectories = false);

// The same, for the output of an rsync of the given class. Throws
// RsyncParseError::unsupportedVersion(version.raw()) for an unsupported class, whose output
// cannot be trusted.
std::vector<FileDiff> parse(const std::vector<std::string>& lines, const RsyncVersion& version,
                            bool includeDirectories);

}  // namespace tapekeep::RsyncDiffParser
