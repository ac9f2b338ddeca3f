#pragma once

#include <stop_token>
#include <string>
#include <vector>

#include "platform/ProcessRunner.h"

namespace tapekeep {

// rsync 3.2.4 and later print numbers in the locale's format, which would break the reading of
// sizes and progress. So every rsync child gets LC_NUMERIC=C; a non-empty LC_ALL moves to LC_CTYPE
// (file names stay in the user's character set) and LC_ALL itself is dropped. The rest of
// `current` ("NAME=value" entries) is kept in order. Pure.
std::vector<std::string> rsyncEnvironment(const std::vector<std::string>& current);

// This process's environment as "NAME=value" entries. Any thread, as long as nobody calls setenv.
std::vector<std::string> currentEnvironment();

// Runner options for an rsync child: rsyncEnvironment(currentEnvironment()).
ProcessRunner::Options rsyncProcessOptions();

// Runs one rsync through the shared ProcessRunner with rsync's environment and returns its exit
// status; lines go to onLine on the calling thread. Throws PosixError when rsync cannot be
// started, and Cancelled.
int runRsync(const std::string& rsyncPath, const std::vector<std::string>& arguments,
             const ProcessRunner::LineHandler& onLine, std::stop_token token);

}  // namespace tapekeep
