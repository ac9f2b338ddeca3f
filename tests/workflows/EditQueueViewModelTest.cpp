#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "EditRecords.h"
#include "EventLoop.h"
#include "M8Files.h"
#include "TempDir.h"
#include "cards/OperationLock.h"
#include "edits/EditManifestStore.h"
#include "edits/EditQueueTexts.h"
#include "workflows/EditQueueViewModel.h"

namespace tapekeep::test {
namespace {
namespace fs = std::filesystem;

const std::string root = "M8_4C3C645B";
const std::string uuid = "4C3C-645B";

// A card as a plain folder with two samples and a song that uses the snare, a real store with the
// set's edits, a lock table of the test's own, and the real rsync.
class EditQueueViewModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        startApplication();
        if (!fs::exists("/usr/bin/rsync")) GTEST_SKIP() << "no /usr/bin/rsync on this machine";
        writeFile(card_ / "Samples/kick.wav", "kick on the card");
        writeFile(card_ / "Samples/snare.wav", "snare on the card");
        writeFile(card_ / "Songs/BEAT.m8s", songWithSamples({"/Samples/snare.wav"}));
        fs::create_directories(base_ / root);
    }

    EditEntry stage(EditMode mode, const std::string& source, const std::string& target,
                    const std::string& content = "trimmed") {
        EditEntry edit = mode == EditMode::overwrite ? overwriteEdit() : newFileEdit(target);
        edit.sourceRelativePath = source;
        edit.targetRelativePath = target;
        const auto rendered = temp_ / "render" / (edit.id + ".wav");
        writeFile(rendered, content);
        store_->addEdit(edit, rendered, root);
        return edit;
    }

    std::unique_ptr<EditQueueViewModel> makeQueue(const std::string& rsyncPath = "/usr/bin/rsync") {
        EditQueueViewModel::Dependencies dependencies;
        dependencies.store = store_;
        dependencies.backupRootName = root;
        dependencies.card = SDCard{card_, "M8", uuid};
        dependencies.rsyncPath = rsyncPath;
        dependencies.lock = &lock_;
        dependencies.applier = EditApplier::standardDependencies([](const SDCard&, std::stop_token) {});
        dependencies.applier.acquire = [this](const VolumeUUID& volume) {
            return lock_.acquire(volume, OperationKind::browse);
        };
        dependencies.applier.release = [this](const Lease& lease) { lock_.release(lease); };
        auto queue = std::make_unique<EditQueueViewModel>(std::move(dependencies));
        QObject::connect(queue.get(), &EditQueueViewModel::loadFinished, [this] { ++loads_; });
        QObject::connect(queue.get(), &EditQueueViewModel::applyFinished, [this] { ++applies_; });
        return queue;
    }

    void load(EditQueueViewModel& queue) {
        const int before = loads_;
        queue.load();
        ASSERT_TRUE(waitFor([&] { return loads_ > before && !queue.isLoading(); }));
    }
    void apply(EditQueueViewModel& queue) {
        const int before = applies_;
        queue.apply();
        ASSERT_TRUE(waitFor([&] { return applies_ > before; }));
        EXPECT_FALSE(queue.isApplying());
    }

    static QStringList statesOf(const EditQueueViewModel& queue, const EditEntry& edit) {
        for (const auto& row : queue.rows())
            if (row.toMap().value("id").toString().toStdString() == edit.id)
                return row.toMap().value("states").toStringList();
        return {"(no row)"};
    }

    TempDir temp_;
    const fs::path card_ = temp_ / "card";
    const fs::path base_ = temp_ / "base";
    std::shared_ptr<EditManifestStore> store_ = std::make_shared<EditManifestStore>(base_);
    OperationLock lock_{NotificationCenter::defaultCenter(), temp_ / "locks"};
    int loads_ = 0;
    int applies_ = 0;
};

TEST_F(EditQueueViewModelTest, RowsTellHowTheCardDiffersFromEachEdit) {
    const auto matching = stage(EditMode::overwrite, "/Samples/snare.wav", "/Samples/snare.wav");
    const auto collision = stage(EditMode::saveAsNew, "/Samples/kick.wav", "/Samples/kick_trim.wav");
    const auto gone = stage(EditMode::saveAsNew, "/Samples/gone.wav", "/Samples/gone_trim.wav");
    writeFile(card_ / "Samples/KICK_TRIM.wav", "someone else's");
    writeFile(card_ / "Songs/MORE.m8s", songWithSamples({"/samples/SNARE.wav"}));
    auto queue = makeQueue();
    load(*queue);

    EXPECT_EQ(statesOf(*queue, matching), QStringList{EditQueueTexts::moreSongs});
    EXPECT_EQ(statesOf(*queue, collision), QStringList{EditQueueTexts::collision});
    EXPECT_EQ(statesOf(*queue, gone), QStringList{EditQueueTexts::sourceMissing});
    EXPECT_EQ(queue->selection().size(), 3u);
    EXPECT_TRUE(queue->notices().contains(EditQueueTexts::blocked));
    EXPECT_TRUE(queue->notices().contains(EditQueueTexts::overwriteHasExtraSongs));
    EXPECT_EQ(queue->applyConfirmation(), EditQueueTexts::applyReplaces);

    queue->setSelected(QString::fromStdString(matching.id), false);
    EXPECT_EQ(queue->applyConfirmation(), EditQueueTexts::applyWrites);
    EXPECT_FALSE(queue->notices().contains(EditQueueTexts::overwriteHasExtraSongs));

    fs::remove(card_ / "Songs/MORE.m8s");
    fs::remove(card_ / "Songs/BEAT.m8s");
    load(*queue);
    EXPECT_EQ(statesOf(*queue, matching), QStringList{EditQueueTexts::fewerSongs});
}

TEST_F(EditQueueViewModelTest, BlockedEditsAreLeftOutAndTheRestApplied) {
    const auto overGone = stage(EditMode::overwrite, "/Samples/hat.wav", "/Samples/hat.wav");
    const auto newGone = stage(EditMode::saveAsNew, "/Samples/ride.wav", "/Samples/ride_trim.wav");
    const auto fine = stage(EditMode::saveAsNew, "/Samples/kick.wav", "/Samples/kick_trim.wav", "short kick");
    auto queue = makeQueue();
    load(*queue);
    EXPECT_TRUE(queue->isBlocked(overGone));
    EXPECT_TRUE(queue->isBlocked(newGone));
    apply(*queue);

    EXPECT_FALSE(queue->perEditProgress().contains(overGone.id));
    EXPECT_FALSE(queue->perEditProgress().contains(newGone.id));
    EXPECT_EQ(readFile(card_ / "Samples/kick_trim.wav"), "short kick");
    ASSERT_TRUE(queue->lastApplyResult());
    EXPECT_EQ(queue->lastApplyResult()->succeeded, 1);
    EXPECT_EQ(queue->lastApplyResult()->failed, 0);
    EXPECT_EQ(queue->edits().size(), 2u);  // the applied edit left the pending list
    EXPECT_FALSE(fs::exists(card_ / "Samples/hat.wav"));
}

TEST_F(EditQueueViewModelTest, ACollisionWithACommitMarkerStaysSelectableAndIsFinished) {
    const auto edit = stage(EditMode::saveAsNew, "/Samples/kick.wav", "/Samples/kick_trim.wav", "short kick");
    store_->writeCommitMarker(edit.id, root);
    writeFile(card_ / "Samples/kick_trim.wav", "short kick");  // the copy of a run that died
    auto queue = makeQueue();
    load(*queue);
    EXPECT_EQ(statesOf(*queue, edit), QStringList{EditQueueTexts::copyComplete});
    EXPECT_FALSE(queue->isBlocked(edit));
    apply(*queue);
    EXPECT_EQ(queue->lastApplyResult()->succeeded, 1);
    EXPECT_TRUE(queue->edits().empty());
    EXPECT_TRUE(queue->notices().contains(EditQueueTexts::noPendingEdits));

    // Another file at the target: still selectable, but the apply fails it and says why.
    const auto other = stage(EditMode::saveAsNew, "/Samples/snare.wav", "/Samples/snare_trim.wav", "mine");
    store_->writeCommitMarker(other.id, root);
    writeFile(card_ / "Samples/snare_trim.wav", "not mine");
    load(*queue);
    EXPECT_EQ(statesOf(*queue, other), QStringList{EditQueueTexts::collision});
    apply(*queue);
    EXPECT_EQ(queue->lastApplyResult()->failureMessages,
              std::vector<std::string>{"Copied content does not match the source file."});
    EXPECT_TRUE(queue->notices().contains(EditQueueTexts::applyFailed));
}

TEST_F(EditQueueViewModelTest, WhileABackupHoldsTheCardNothingIsApplied) {
    stage(EditMode::saveAsNew, "/Samples/kick.wav", "/Samples/kick_trim.wav");
    auto queue = makeQueue();
    load(*queue);
    EXPECT_TRUE(queue->canApply());
    const Lease backup = lock_.acquire(VolumeUUID{uuid}, OperationKind::backup);
    ASSERT_TRUE(waitFor([&] { return !queue->canApply(); }));
    EXPECT_TRUE(queue->notices().contains(EditQueueTexts::lockHeldBanner));
    apply(*queue);
    EXPECT_EQ(queue->loadError(), EditQueueTexts::lockHeld);
    EXPECT_FALSE(queue->lastApplyResult());
    EXPECT_FALSE(fs::exists(card_ / "Samples/kick_trim.wav"));
    lock_.release(backup);
    ASSERT_TRUE(waitFor([&] { return queue->canApply(); }));
}

TEST_F(EditQueueViewModelTest, AnApplyWhereEveryEditFailsCountsEachWithItsMessage) {
    stage(EditMode::saveAsNew, "/Samples/kick.wav", "/Samples/kick_trim.wav");
    stage(EditMode::overwrite, "/Samples/snare.wav", "/Samples/snare.wav");
    auto queue = makeQueue((temp_ / "no-rsync-here").string());
    load(*queue);
    apply(*queue);
    ASSERT_TRUE(queue->lastApplyResult());
    EXPECT_EQ(queue->lastApplyResult()->succeeded, 0);
    EXPECT_EQ(queue->lastApplyResult()->failed, 2);
    ASSERT_EQ(queue->lastApplyResult()->failureMessages.size(), 2u);
    for (const auto& edit : queue->edits()) EXPECT_TRUE(edit.applyError) << edit.id;
    EXPECT_EQ(readFile(card_ / "Samples/snare.wav"), "snare on the card");
}

TEST_F(EditQueueViewModelTest, ARenameOntoAPathOnTheCardIsRefusedAndADiscardGoes) {
    const auto edit = stage(EditMode::saveAsNew, "/Samples/kick.wav", "/Samples/kick_trim.wav");
    auto queue = makeQueue();
    load(*queue);
    queue->rename(QString::fromStdString(edit.id), "/samples/SNARE.wav");
    EXPECT_EQ(queue->loadError(), EditQueueTexts::renameTargetOnCard);
    EXPECT_EQ(store_->pendingEdits(root).front().targetRelativePath, "/Samples/kick_trim.wav");

    const int before = loads_;
    queue->rename(QString::fromStdString(edit.id), "/Samples/Cuts/kick_short.wav");
    ASSERT_TRUE(waitFor([&] { return loads_ > before && !queue->isLoading(); }));
    EXPECT_FALSE(queue->loadError());
    EXPECT_EQ(queue->edits().front().targetRelativePath, "/Samples/Cuts/kick_short.wav");

    const int beforeDiscard = loads_;
    queue->discardAll();
    ASSERT_TRUE(waitFor([&] { return loads_ > beforeDiscard && !queue->isLoading(); }));
    EXPECT_TRUE(queue->edits().empty());
    EXPECT_TRUE(store_->pendingEdits(root).empty());
}

}  // namespace
}  // namespace tapekeep::test
