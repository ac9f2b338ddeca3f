#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "EditStoreFixture.h"
#include "FileContent.h"
#include "backup/RsyncProcess.h"
#include "cards/OperationLock.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "edits/EditApplier.h"
#include "edits/EditPathValidator.h"

namespace tapekeep::test {
namespace {
namespace fs = std::filesystem;

const std::string uuid = "4C3C-645B";

// A card as a plain folder with two samples, real rsync and the real read-back, and the card check
// and lease of a lock table of the test's own. What each run published is kept per edit.
class EditApplierTest : public EditStoreFixture {
protected:
    void SetUp() override {
        if (!fs::exists("/usr/bin/rsync")) GTEST_SKIP() << "no /usr/bin/rsync on this machine";
        writeFile(card_ / "Samples/kick.wav", "kick on the card");
        writeFile(card_ / "Samples/snare.wav", "snare on the card");
        writeFile(card_ / "Songs/BEAT.m8s", "song");
    }

    EditApplier::Dependencies dependencies() {
        return {
            .revalidateCard =
                [this](const SDCard& card, std::stop_token) {
                    ++revalidations_;
                    if (cardCheck_) cardCheck_(card);
                },
            .runRsync =
                [this](const std::string& rsyncPath, const std::vector<std::string>& arguments,
                       std::stop_token token) {
                    rsyncArguments_.push_back(arguments);
                    if (rsyncStatus_) return rsyncStatus_(arguments);
                    return runRsync(rsyncPath, arguments, {}, std::move(token));
                },
            .verifyCopy =
                [](const fs::path& staged, const fs::path& target, std::stop_token token) {
                    EditPathValidator::contentsEqual(staged, target, token);
                },
            .acquire =
                [this](const VolumeUUID& volume) { return lock_.acquire(volume, OperationKind::browse); },
            .release = [this](const Lease& lease) { lock_.release(lease); },
        };
    }

    EditApplier::Request request(std::vector<EditEntry> edits) {
        EditApplier::Request request;
        request.edits = std::move(edits);
        request.volumeUUID = uuid;
        request.backupRootName = root;
        request.mountURL = card_;
        request.lockedCard = SDCard{card_, "M8", uuid};
        request.snapshot.targetExists = [this](const std::string& path) {
            return fs::exists(card_ / path.substr(1));
        };
        request.rsyncPath = "/usr/bin/rsync";
        request.stagedFileResolver = [this](const EditEntry& edit) { return stagedFile(edit); };
        return request;
    }

    void apply(const EditApplier::Request& request, std::stop_token token = {}) {
        EditApplier(store_, dependencies())
            .applyEdits(
                request,
                [this](const std::string& id, const ApplyProgress& progress) {
                    progress_[id].push_back(progress);
                },
                std::move(token));
    }
    void apply(const std::vector<EditEntry>& edits) { apply(request(edits)); }

    EditEntry stage(EditEntry edit, const std::string& content) {
        store_.addEdit(edit, rendered(content), root);
        return edit;
    }

    EditEntry reloaded(const EditEntry& edit) {
        for (const auto& candidate : store_.load(root).edits)
            if (candidate.id == edit.id) return candidate;
        ADD_FAILURE() << "no edit " << edit.id;
        return {};
    }

    ApplyProgress lastProgress(const EditEntry& edit) {
        const auto& published = progress_[edit.id];
        return published.empty() ? ApplyProgress{} : published.back();
    }
    std::string failure(const EditEntry& edit) {
        const auto last = lastProgress(edit);
        return last.phase == ApplyProgress::Phase::failed ? last.message : "(not failed)";
    }

    const fs::path card_ = temp_ / "card";
    OperationLock lock_{NotificationCenter::defaultCenter(), temp_ / "locks"};
    std::function<void(const SDCard&)> cardCheck_;
    std::function<int(const std::vector<std::string>&)> rsyncStatus_;
    int revalidations_ = 0;
    std::vector<std::vector<std::string>> rsyncArguments_;
    std::map<std::string, std::vector<ApplyProgress>> progress_;
};

TEST_F(EditApplierTest, NewFileLandsReadBackAndRecordedAndOverwriteReplacesTheSample) {
    const auto trim = stage(newFileEdit("/Samples/Drums/kick_trim.wav"), "trimmed kick");
    const auto over = stage(overwriteEdit(), "trimmed snare");
    apply({trim, over});

    EXPECT_EQ(readFile(card_ / "Samples/Drums/kick_trim.wav"), "trimmed kick");
    EXPECT_EQ(readFile(card_ / "Samples/snare.wav"), "trimmed snare");
    EXPECT_EQ(readFile(card_ / "Samples/kick.wav"), "kick on the card");
    EXPECT_TRUE(store_.pendingEdits(root).empty());
    EXPECT_FALSE(reloaded(trim).applyError);
    EXPECT_TRUE(store_.editsWithCommitMarkers(root).empty());
    using Phase = ApplyProgress::Phase;
    std::vector<Phase> phases;
    for (const auto& progress : progress_[trim.id]) phases.push_back(progress.phase);
    EXPECT_EQ(phases, (std::vector<Phase>{Phase::starting, Phase::copying, Phase::verifying, Phase::done}));
    ASSERT_EQ(rsyncArguments_.size(), 2u);
    EXPECT_EQ(rsyncArguments_[0][1], "--ignore-existing");
    EXPECT_EQ(rsyncArguments_[1][1], "--checksum");
    EXPECT_FALSE(lock_.isActive(VolumeUUID{uuid}));
}

TEST_F(EditApplierTest, AMismatchedCardFailsEveryEditWithoutTakingTheCard) {
    const auto first = stage(newFileEdit(), "a");
    const auto second = stage(overwriteEdit(), "b");
    std::vector<std::string> seen;
    const auto token = lock_.observeActiveVolumeUUIDs(
        [&](const std::set<std::string>& held) { seen.insert(seen.end(), held.begin(), held.end()); });
    const auto expected = "invalid path: locked card, validated card, and target mount do not match";
    for (auto change : std::vector<std::function<void(EditApplier::Request&)>>{
             [](auto& r) { r.lockedCard->diskUtilUUID = "0000-0000"; },
             [this](auto& r) { r.lockedCard->mountPath = temp_ / "other"; },
             [](auto& r) {
                 r.volumeUUID.clear();
                 r.lockedCard.reset();
             },
         }) {
        auto run = request({first, second});
        change(run);
        progress_.clear();
        apply(run);
        EXPECT_EQ(failure(first), expected);
        EXPECT_EQ(reloaded(second).applyError, expected);
    }
    lock_.removeObserver(token);
    EXPECT_TRUE(seen.empty());
    EXPECT_TRUE(rsyncArguments_.empty());
    EXPECT_EQ(readFile(card_ / "Samples/snare.wav"), "snare on the card");

    auto fromMount = request({first});  // no card held: one made of the mount and the UUID will do
    fromMount.lockedCard.reset();
    fromMount.mountURL = card_.string() + "/./";
    apply(fromMount);
    EXPECT_EQ(lastProgress(first).phase, ApplyProgress::Phase::done);
}

TEST_F(EditApplierTest, ATargetAlreadyOnTheCardIsLeftAloneUnlessItIsThisEditsFinishedCopy) {
    const auto edit = stage(newFileEdit(), "trimmed kick");
    writeFile(card_ / "Samples/kick_trim.wav", "someone else's file");
    apply({edit});
    EXPECT_EQ(failure(edit), "invalid path: target already exists on card — rename or discard");
    EXPECT_EQ(readFile(card_ / "Samples/kick_trim.wav"), "someone else's file");
    EXPECT_TRUE(rsyncArguments_.empty());
    EXPECT_TRUE(store_.editsWithCommitMarkers(root).empty());

    // With a marker the file might be the copy of a run that died before recording it; it differs.
    store_.writeCommitMarker(edit.id, root);
    apply({edit});
    EXPECT_EQ(failure(edit), "Copied content does not match the source file.");
    EXPECT_EQ(reloaded(edit).applyError, "Copied content does not match the source file.");
    EXPECT_EQ(store_.editsWithCommitMarkers(root), std::set<std::string>{edit.id});
    EXPECT_EQ(readFile(card_ / "Samples/kick_trim.wav"), "someone else's file");

    // Identical: the earlier copy is recorded, and nothing is copied again.
    writeFile(card_ / "Samples/kick_trim.wav", "trimmed kick");
    apply({edit});
    EXPECT_EQ(lastProgress(edit).phase, ApplyProgress::Phase::done);
    EXPECT_TRUE(rsyncArguments_.empty());
    EXPECT_TRUE(store_.pendingEdits(root).empty());
}

TEST_F(EditApplierTest, AMarkerWithoutAFileOnTheCardCopiesAgain) {
    const auto edit = stage(newFileEdit(), "trimmed kick");
    store_.writeCommitMarker(edit.id, root);
    apply({edit});
    EXPECT_EQ(lastProgress(edit).phase, ApplyProgress::Phase::done);
    EXPECT_EQ(readFile(card_ / "Samples/kick_trim.wav"), "trimmed kick");

    // The live scan still says the path is taken though the file is gone from the mount: refused.
    const auto second = stage(newFileEdit("/Samples/hat_trim.wav"), "hat");
    store_.writeCommitMarker(second.id, root);
    auto run = request({second});
    run.snapshot.targetExists = [](const std::string& path) { return path == "/Samples/hat_trim.wav"; };
    apply(run);
    EXPECT_EQ(failure(second), "invalid path: target already exists on card — rename or discard");
}

TEST_F(EditApplierTest, ASymbolicLinkOnTheWayToTheTargetIsRefusedAndNothingWritten) {
    fs::create_directories(card_ / "Elsewhere");
    fs::create_directory_symlink(card_ / "Elsewhere", card_ / "Kits");  // points inside the card
    fs::create_symlink(card_ / "Samples/kick.wav", card_ / "Samples/linked.wav");
    const auto throughFolder = stage(newFileEdit("/Kits/New/kick_trim.wav"), "a");
    const auto atTarget = stage(newFileEdit("/Samples/linked.wav"), "b");
    auto run = request({throughFolder, atTarget});
    run.snapshot.targetExists = [](const std::string&) { return false; };
    const auto before = treeOf(card_);
    apply(run);
    EXPECT_EQ(failure(throughFolder), "symlink in target path: Kits");
    EXPECT_EQ(failure(atTarget), "symlink in target path: linked.wav");
    EXPECT_EQ(treeOf(card_), before);
    EXPECT_TRUE(rsyncArguments_.empty());

    // A link planted after the walk, between the checks and the folder's creation, is met there too.
    fs::remove(card_ / "Kits");
    fs::create_directories(card_ / "Kits");
    int checks = 0;
    cardCheck_ = [&](const SDCard&) {
        if (++checks == 1) {
            fs::remove(card_ / "Kits");
            fs::create_directory_symlink(card_ / "Elsewhere", card_ / "Kits");
        }
    };
    apply(request({throughFolder}));
    EXPECT_EQ(failure(throughFolder), "symlink in target path: Kits");
    EXPECT_TRUE(fs::is_empty(card_ / "Elsewhere"));
}

TEST_F(EditApplierTest, RefusalsBeforeTheCopyNameTheirCause) {
    const auto gone = stage(overwriteEdit(), "snare");
    const auto folder = stage(newFileEdit("/Samples/a_trim.wav"), "a");
    const auto escaping = stage(newFileEdit("/Samples/b_trim.wav"), "b");
    fs::remove(stagedFile(folder));
    fs::create_directory(stagedFile(folder));
    auto run = request({gone, folder});
    run.snapshot.missingSampleIDs = {gone.id};
    apply(run);
    EXPECT_EQ(failure(gone), "invalid path: source sample not present on card");
    EXPECT_EQ(failure(folder), "staged source file not found");

    auto hostile = escaping;
    hostile.targetRelativePath = "/Samples/../../outside.wav";
    hostile.stagedFileName = "../manifest.json";
    apply({hostile});
    EXPECT_EQ(failure(hostile), "Path contains '..': /Samples/../../outside.wav");
    EXPECT_TRUE(rsyncArguments_.empty());
    EXPECT_FALSE(fs::exists(temp_ / "outside.wav"));
}

TEST_F(EditApplierTest, ARsyncFailureIsRecordedAndTheNextEditStillRuns) {
    const auto first = stage(newFileEdit("/Samples/a_trim.wav"), "a");
    const auto second = stage(newFileEdit("/Samples/b_trim.wav"), "b");
    rsyncStatus_ = [&](const std::vector<std::string>& arguments) {
        return arguments.back().ends_with("a_trim.wav") ? 23 : runRsync("/usr/bin/rsync", arguments, {}, {});
    };
    apply({first, second});
    EXPECT_EQ(failure(first), "rsync failed (exit 23): ");
    EXPECT_EQ(reloaded(first).applyError, "rsync failed (exit 23): ");
    EXPECT_EQ(lastProgress(second).phase, ApplyProgress::Phase::done);
    EXPECT_EQ(readFile(card_ / "Samples/b_trim.wav"), "b");
    // The marker stays behind the failed copy; harmless, since the next run finds no target.
    EXPECT_EQ(store_.editsWithCommitMarkers(root), std::set<std::string>{first.id});
}

TEST_F(EditApplierTest, ACancelledCopyFailsItsEditAndLeavesTheRestAsTheyWere) {
    const auto first = stage(newFileEdit("/Samples/a_trim.wav"), "a");
    const auto second = stage(newFileEdit("/Samples/b_trim.wav"), "b");
    std::stop_source stop;
    rsyncStatus_ = [&](const std::vector<std::string>&) {
        stop.request_stop();
        return 20;  // what rsync answers to a signal
    };
    EXPECT_THROW(apply(request({first, second}), stop.get_token()), Cancelled);
    EXPECT_EQ(failure(first), Cancelled().what());
    EXPECT_EQ(reloaded(first).applyError, Cancelled().what());
    EXPECT_TRUE(progress_[second.id].empty());
    EXPECT_EQ(reloaded(second), second);
    EXPECT_FALSE(lock_.isActive(VolumeUUID{uuid}));
}

TEST_F(EditApplierTest, AHeldCardOrAFailedLiveCheckFailsEveryEdit) {
    const auto first = stage(newFileEdit("/Samples/a_trim.wav"), "a");
    const auto second = stage(overwriteEdit(), "b");
    const Lease backup = lock_.acquire(VolumeUUID{uuid}, OperationKind::backup);
    apply({first, second});
    lock_.release(backup);
    EXPECT_EQ(failure(first), "a backup or restore is already running on this card");
    EXPECT_EQ(reloaded(second).applyError, "a backup or restore is already running on this card");

    // A lease that cannot be had for another reason fails the run the same way, in its own words.
    auto broken = dependencies();
    broken.acquire = [](const VolumeUUID&) -> Lease { throw Error("Could not lock a card lock file"); };
    EditApplier(store_, broken).applyEdits(request({first}), {}, {});
    EXPECT_EQ(reloaded(first).applyError, "Could not lock a card lock file");

    auto run = request({first, second});
    bool heldDuringScan = false;
    run.refresh = [&](std::stop_token) -> LiveCheckSnapshot {
        heldDuringScan = lock_.isActive(VolumeUUID{uuid});
        throw Error("Could not read live song metadata: /Songs/BEAT.m8s");
    };
    apply(run);
    EXPECT_TRUE(heldDuringScan);
    for (const auto& edit : {first, second})
        EXPECT_EQ(failure(edit),
                  "invalid path: live card scan failed: Could not read live song metadata: "
                  "/Songs/BEAT.m8s");
    EXPECT_TRUE(rsyncArguments_.empty());
    EXPECT_FALSE(lock_.isActive(VolumeUUID{uuid}));
}

TEST_F(EditApplierTest, TheFreshLiveCheckDecidesOverTheCallersSnapshot) {
    const auto over = stage(overwriteEdit(), "b");
    auto run = request({over});
    run.refresh = [&](std::stop_token) {
        LiveCheckSnapshot fresh;
        fresh.missingSampleIDs = {over.id};
        return fresh;
    };
    apply(run);
    EXPECT_EQ(failure(over), "invalid path: source sample not present on card");
}

TEST_F(EditApplierTest, ACardPulledAfterTheMarkerWithdrawsItAndAFailedRecordIsRecoverable) {
    const auto edit = stage(newFileEdit(), "trimmed kick");
    int checks = 0;
    cardCheck_ = [&](const SDCard&) {
        if (++checks == 3) throw Error("The card is no longer mounted.");  // the check after the marker
    };
    apply({edit});
    EXPECT_EQ(failure(edit), "The card is no longer mounted.");
    EXPECT_TRUE(store_.editsWithCommitMarkers(root).empty());
    EXPECT_FALSE(fs::exists(card_ / "Samples/kick_trim.wav"));

    // The copy lands but its record cannot be saved: the marker lets the next run finish it.
    cardCheck_ = nullptr;
    store_.setBeforeManifestWrite([] { throw Error("disk full"); });
    apply({edit});
    EXPECT_EQ(failure(edit).rfind("could not persist edit status: ", 0), 0u) << failure(edit);
    EXPECT_NE(failure(edit).find(" (could not save failure status: "), std::string::npos);
    EXPECT_EQ(readFile(card_ / "Samples/kick_trim.wav"), "trimmed kick");
    EXPECT_EQ(store_.editsWithCommitMarkers(root), std::set<std::string>{edit.id});

    store_.setBeforeManifestWrite(nullptr);
    rsyncArguments_.clear();
    apply({edit});
    EXPECT_EQ(lastProgress(edit).phase, ApplyProgress::Phase::done);
    EXPECT_TRUE(rsyncArguments_.empty());
    EXPECT_TRUE(store_.pendingEdits(root).empty());
}

TEST(EditApplierPathWalkTest, OnlyLinksBelowTheMountCountAndAMissingPartEndsTheWalk) {
    TempDir temp;
    const fs::path mount = temp / "mount";
    fs::create_directories(mount / "Samples");
    fs::create_directory_symlink(temp.path(), temp / "linkedMount");
    // The mount itself may be reached through a link; only what lies below it is the card's.
    EXPECT_NO_THROW(EditApplier::checkTargetPath(temp / "linkedMount/Samples/x.wav", temp / "linkedMount"));
    EXPECT_NO_THROW(EditApplier::checkTargetPath(mount / "Missing/Deeper/x.wav", mount));
    fs::create_symlink("nowhere", mount / "Samples/dangling.wav");
    try {
        EditApplier::checkTargetPath(mount / "Samples/dangling.wav", mount / ".");
        ADD_FAILURE() << "a dangling link passed";
    } catch (const Error& error) {
        EXPECT_EQ(error.description(), "symlink in target path: dangling.wav");
    }
}

}  // namespace
}  // namespace tapekeep::test
