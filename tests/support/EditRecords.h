#pragma once

#include <string>

#include "core/Uuid.h"
#include "edits/EditEntry.h"

namespace tapekeep::test {

// A pending saveAsNew trim of /Samples/kick.wav with a fresh id, as the staging service makes one.
inline EditEntry newFileEdit(const std::string& target = "/Samples/kick_trim.wav") {
    EditEntry edit;
    edit.id = makeUuid();
    edit.mode = EditMode::saveAsNew;
    edit.createdAt = TimePoint(std::chrono::seconds(1'738'324'800));  // 2025-01-31T12:00:00Z
    edit.sourceVersionFolder = "backup-2025-01-31-120000";
    edit.sourceRelativePath = "/Samples/kick.wav";
    edit.targetRelativePath = target;
    edit.stagedFileName = edit.id + ".wav";
    edit.parameters.sampleTrim = {0.25, 1.5, 2.0};
    return edit;
}

// A pending trim over /Samples/snare.wav itself, used by one song.
inline EditEntry overwriteEdit() {
    auto edit = newFileEdit("/Samples/snare.wav");
    edit.mode = EditMode::overwrite;
    edit.sourceRelativePath = "/Samples/snare.wav";
    edit.affectedSongs = {"/Songs/BEAT.m8s"};
    return edit;
}

}  // namespace tapekeep::test
