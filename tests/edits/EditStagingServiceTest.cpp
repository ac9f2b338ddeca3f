// Staging of trims of real audio made by sox into a real edit store: the target rules in their
// order, the record and the rendered frames of a staged edit, and that no refusal, cancellation or
// store failure leaves a temporary file or changes the store.

#include "edits/EditStagingService.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "EditRecords.h"
#include "FileContent.h"
#include "SoxAudio.h"
#include "TempDir.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using Service = EditStagingService;

std::string failureOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

TEST(EditStagingTargetTest, TheFirstBrokenRuleNamesTheFailure) {
    auto other = test::newFileEdit("/Samples/Pending.wav");
    auto replaced = test::newFileEdit("/Samples/mine.wav");
    auto taken = test::newFileEdit("/Samples/Taken.wav");
    const std::vector pending{other, replaced, taken};
    const auto backup = Service::lowerCasedPaths({"/Samples/kick.wav", "\\Samples\\Taken.wav"});
    const struct {
        std::string target;
        std::optional<std::string> replacing;
        std::string failure;
    } cases[] = {
        {"/samples/x.WAV", {}, ""},
        {"/Samples/mine.wav", replaced.id, ""},
        {"/Samples/MINE.wav", {}, "A pending edit already targets this path."},
        {"/Samples/pending.WAV", replaced.id, "A pending edit already targets this path."},
        {"/Samples/TAKEN.wav", {}, "A file with this path already exists in the backup."},
        {"/Samples/Kick.wav", {}, "Target filename must differ from source."},
        {"/Songs/x.wav", {}, "Choose a .wav filename inside /Samples/."},
        {"/Samples/x.aif", {}, "Choose a .wav filename inside /Samples/."},
        {"/Samples.wav", {}, "Choose a .wav filename inside /Samples/."},
        {"/Samples//x.wav", {}, "Path has empty component (e.g. //): /Samples//x.wav"},
    };
    for (const auto& example : cases) {
        EXPECT_EQ(failureOf([&] {
                      Service::validateTarget(example.target, "/Samples/kick.wav", backup, pending,
                                              example.replacing);
                  }),
                  example.failure)
            << example.target;
    }
}

class EditStagingServiceTest : public ::testing::Test {
protected:
    static constexpr const char* root = "M8_4C3C645B";

    void SetUp() override {
        if (const auto missing = test::soxMissing(); !missing.empty()) GTEST_SKIP() << missing;
        fs::create_directories(source_.parent_path());
        test::makeAudio(source_, {"-r", "44100", "-c", "1", "-b", "16"}, 1.0);
        // The service renders into the system's temporary folder; this test's own, so that what it
        // leaves there shows.
        if (const char* previous = std::getenv("TMPDIR")) previousTemporary_ = previous;
        fs::create_directories(temporary_);
        ::setenv("TMPDIR", temporary_.c_str(), 1);
        service_.setAfterRender([this](const fs::path& rendered) {
            renders_.push_back(rendered);
            if (afterRender_) afterRender_();
        });
    }
    void TearDown() override {
        if (previousTemporary_)
            ::setenv("TMPDIR", previousTemporary_->c_str(), 1);
        else
            ::unsetenv("TMPDIR");
    }

    Service::Request request(const std::string& target = "/Samples/kick_trim.wav") {
        Service::Request request;
        request.source = source_;
        request.rangeLow = 0.25;
        request.rangeHigh = 0.75;
        request.originalDuration = 1.0;
        request.mode = EditMode::saveAsNew;
        request.sourceVersionFolder = "backup-2025-01-31-120000";
        request.sourceRelativePath = "/Samples/kick.wav";
        request.targetRelativePath = target;
        request.backupRootName = root;
        request.affectedSongs = {"/Songs/BEAT.m8s"};
        request.backupPaths = {"/Samples/kick.wav", "/Samples/Taken.wav"};
        return request;
    }

    [[nodiscard]] fs::path staged(const EditEntry& edit) const {
        return base_ / ".edits" / root / "staged" / edit.stagedFileName;
    }
    [[nodiscard]] std::vector<std::string> stagedNames() const {
        return test::namesIn(base_ / ".edits" / root / "staged");
    }
    // No rendered file is left in the temporary folder.
    void expectNoTemporaryFile() const {
        EXPECT_EQ(test::namesIn(temporary_), std::vector<std::string>{});
        for (const auto& rendered : renders_) EXPECT_FALSE(fs::exists(rendered)) << rendered;
    }

    test::TempDir temp_;
    const fs::path source_ = temp_ / "version/Samples/kick.wav";
    const fs::path temporary_ = temp_ / "tmp";
    const fs::path base_ = temp_ / "base";
    std::shared_ptr<EditManifestStore> store_ = std::make_shared<EditManifestStore>(base_);
    Service service_{store_};
    std::vector<fs::path> renders_;
    std::function<void()> afterRender_;

private:
    std::optional<std::string> previousTemporary_;
};

TEST_F(EditStagingServiceTest, ANewFileHoldsTheTrimmedFramesAndUsesNoSong) {
    const auto before = std::chrono::floor<std::chrono::seconds>(Clock::now());
    const auto edit = service_.stage(request("/samples/kick_trim.WAV"));

    ASSERT_EQ(renders_.size(), 1u);
    EXPECT_EQ(renders_[0].filename(), "m8-edit-" + edit.id + ".wav");
    EXPECT_EQ(renders_[0].parent_path(), temporary_);
    EXPECT_EQ(edit.stagedFileName, edit.id + ".wav");
    EXPECT_EQ(edit.mode, EditMode::saveAsNew);
    EXPECT_GE(edit.createdAt, before);
    EXPECT_FALSE(edit.appliedAt || edit.applyError);
    EXPECT_EQ(edit.sourceVersionFolder, "backup-2025-01-31-120000");
    EXPECT_EQ(edit.sourceRelativePath, "/Samples/kick.wav");
    EXPECT_EQ(edit.targetRelativePath, "/samples/kick_trim.WAV");
    EXPECT_EQ(edit.affectedSongs, std::vector<std::string>{});
    EXPECT_EQ(edit.parameters.sampleTrim, (EditParameters::SampleTrim{0.25, 0.75, 1.0}));
    EXPECT_EQ(store_->pendingEdits(root), std::vector{edit});

    const auto kept = test::readAudio(staged(edit));
    const auto whole = test::readAudio(source_, 11025, 22050);
    EXPECT_EQ(kept.frames, 22050);
    EXPECT_EQ(kept.integers, whole.integers);
    expectNoTemporaryFile();
}

TEST_F(EditStagingServiceTest, AnOverwriteKeepsItsSongsAndIsNoNewTarget) {
    auto overwrite = request("/Samples/kick.wav");
    overwrite.mode = EditMode::overwrite;
    const auto edit = service_.stage(overwrite);
    EXPECT_EQ(edit.affectedSongs, std::vector<std::string>{"/Songs/BEAT.m8s"});
    EXPECT_EQ(store_->pendingEdits(root), std::vector{edit});
}

TEST_F(EditStagingServiceTest, RefusalsComeBeforeTheRender) {
    const auto first = service_.stage(request("/Samples/first.wav"));
    renders_.clear();
    auto aif = request("/Samples/kick.aif");
    auto unrooted = request();
    unrooted.sourceRelativePath = "Samples/kick.wav";
    const struct {
        Service::Request request;
        std::string failure;
    } cases[] = {
        {aif,
         "Mode invariant violated: Trimmed samples must use a .wav filename. Use Save as New for other "
         "source formats."},
        {unrooted, "Path must start with '/': Samples/kick.wav"},
        {request("/Samples/TAKEN.WAV"), "A file with this path already exists in the backup."},
        {request("/samples/FIRST.wav"), "A pending edit already targets this path."},
    };
    for (const auto& example : cases)
        EXPECT_EQ(failureOf([&] { service_.stage(example.request); }), example.failure);
    EXPECT_EQ(renders_, std::vector<fs::path>{});
    EXPECT_EQ(store_->pendingEdits(root), std::vector{first});
    expectNoTemporaryFile();
}

TEST_F(EditStagingServiceTest, CancellingAfterTheRenderLeavesNoTemporaryFile) {
    std::stop_source stop;
    afterRender_ = [&] {
        EXPECT_TRUE(fs::exists(renders_.back()));
        stop.request_stop();
    };
    EXPECT_THROW(service_.stage(request(), stop.get_token()), Cancelled);
    EXPECT_EQ(renders_.size(), 1u);
    expectNoTemporaryFile();
    EXPECT_EQ(store_->pendingEdits(root), std::vector<EditEntry>{});
    EXPECT_FALSE(fs::exists(base_ / ".edits"));
}

TEST_F(EditStagingServiceTest, AFailingStoreLeavesNoTemporaryFileAndItsEditsAsTheyWere) {
    const auto first = service_.stage(request("/Samples/first.wav"));
    store_->setBeforeManifestWrite([] { throw PosixError(ENOSPC, "No space left on device"); });
    EXPECT_EQ(failureOf([&] { service_.stage(request()); }), "No space left on device");
    EXPECT_EQ(renders_.size(), 2u);
    expectNoTemporaryFile();
    EXPECT_EQ(store_->pendingEdits(root), std::vector{first});
    EXPECT_EQ(stagedNames(), std::vector{first.stagedFileName});
}

TEST_F(EditStagingServiceTest, AReplacementIsANewEditAndTheOldOneStandsUntilItIsSaved) {
    const auto old = service_.stage(request());
    const auto after = service_.stage(request("/Samples/after.wav"));
    auto again = request();  // the target that only the replaced edit holds
    again.replacingEditID = old.id;
    again.rangeLow = 0.5;

    store_->setBeforeManifestWrite([] { throw PosixError(ENOSPC, "No space left on device"); });
    EXPECT_EQ(failureOf([&] { service_.stage(again); }), "No space left on device");
    EXPECT_EQ(store_->pendingEdits(root), (std::vector{old, after}));
    EXPECT_TRUE(fs::exists(staged(old)));
    expectNoTemporaryFile();

    store_->setBeforeManifestWrite({});
    const auto replacement = service_.stage(again);
    EXPECT_NE(replacement.id, old.id);
    EXPECT_EQ(replacement.parameters.sampleTrim.start, 0.5);
    EXPECT_EQ(store_->pendingEdits(root), (std::vector{replacement, after}));
    EXPECT_FALSE(fs::exists(staged(old)));
    EXPECT_EQ(test::readAudio(staged(replacement)).frames, 11025);
    expectNoTemporaryFile();
}

// A staging killed between its render and the store leaves its render behind; the next launch
// removes it once it is old enough that no staging can still be writing it.
TEST(EditStagingSweepTest, OnlyOldRendersGoAndNothingElse) {
    test::TempDir temp;
    const auto now = fs::file_time_type::clock::now();
    const auto old = now - std::chrono::hours(2);
    for (const auto* name : {"m8-edit-OLD.wav", "m8-edit-NEW.wav", "m8-edit-OLD.txt", "other-OLD.wav"})
        test::writeFile(temp / name, "render");
    fs::create_directory(temp / "m8-edit-FOLDER.wav");
    fs::create_symlink(temp / "other-OLD.wav", temp / "m8-edit-LINK.wav");
    for (const auto* name : {"m8-edit-OLD.wav", "m8-edit-OLD.txt", "other-OLD.wav", "m8-edit-FOLDER.wav"})
        fs::last_write_time(temp / name, old);

    Service::sweepAbandonedRenders(temp.path(), now);
    EXPECT_FALSE(fs::exists(temp / "m8-edit-OLD.wav"));
    for (const auto* name : {"m8-edit-NEW.wav", "m8-edit-OLD.txt", "other-OLD.wav", "m8-edit-FOLDER.wav"})
        EXPECT_TRUE(fs::exists(temp / name)) << name;
    EXPECT_TRUE(fs::is_symlink(temp / "m8-edit-LINK.wav"));
    Service::sweepAbandonedRenders(temp / "missing", now);  // a folder that is gone is no failure
}

}  // namespace
}  // namespace tapekeep
