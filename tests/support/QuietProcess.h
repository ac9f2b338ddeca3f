#pragma once

#include <string>
#include <vector>

namespace tapekeep::test {

// Runs the program (words[0], looked up on PATH unless it is a path) with the other words as its
// arguments, its standard output and error discarded, and waits for it. Returns its exit status, or
// -1 when it did not start or ended by a signal.
int runQuietly(std::vector<std::string> words);

}  // namespace tapekeep::test
