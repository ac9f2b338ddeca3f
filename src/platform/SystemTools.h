#pragma once

#include <optional>
#include <string>

namespace tapekeep::SystemTools {

// Where the system keeps a command-line tool. Distributions put tools in different bin folders, and
// the process runner does not search PATH, so the folders are tried in the order "/usr/bin",
// "/bin", "/usr/sbin", "/sbin". Any thread.

// The first of those folders' files of that name that is executable, or none.
std::optional<std::string> find(const std::string& name);

// find(), or "/usr/bin/<name>" when the tool is absent, so that starting it reports the missing tool.
std::string pathOf(const std::string& name);

}  // namespace tapekeep::SystemTools
