#pragma once

#include <string_view>

namespace tapekeep::TestPause {

// A hook for tests that stop the program at an exact step of a backup, without guessing at timing.
// When TAPEKEEP_TEST_PAUSE_AT names `step`, the calling thread writes the file that
// TAPEKEEP_TEST_PAUSE_MARKER names and waits until that file is removed (or the process killed),
// then goes on; a step reached again later runs on. Otherwise, as in every normal run, it does nothing.
// Steps: "staging-created", "estimate-pass" and "transfer-pass" (at rsync's first line), "renamed",
// "latest-swap", "rotation"; and of a restore, "restore-checks" (before the card and the version are
// looked at).
void at(std::string_view step);

}  // namespace tapekeep::TestPause
