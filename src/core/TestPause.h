#pragma once

#include <stop_token>
#include <string_view>

namespace tapekeep::TestPause {

// A hook for tests that stop the program at an exact step of a backup, without guessing at timing.
// When TAPEKEEP_TEST_PAUSE_AT names `step`, the calling thread writes the file that
// TAPEKEEP_TEST_PAUSE_MARKER names and waits until that file is removed (or the process killed),
// then goes on; a step reached again later runs on. Otherwise, as in every normal run, it does nothing.
// Steps: "staging-created", "estimate-pass" and "transfer-pass" (at rsync's first line), "renamed",
// "latest-swap", "rotation"; "export-written" (an export's temporary file is complete, not yet
// checked or published), "zip-entry" (a ZIP export has written its first file), "trim-block" (a sample trim
// has written its first block to its temporary file); and of a restore, "restore-checks" (before the card and
// the version are looked at); and of an undo, "undo-checks" (before the card is looked at).
void at(std::string_view step);

// The same, but a stop request also ends the wait, so that a test can cancel the work exactly at the
// step and see its cancellation path run.
void at(std::string_view step, const std::stop_token& token);

}  // namespace tapekeep::TestPause
