#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>

#include "ChildReport.h"
#include "EditStoreFixture.h"
#include "core/FileReading.h"
#include "core/PosixError.h"
#include "edits/EditManifestCoding.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::writeFile;

class EditManifestStoreTest : public test::EditStoreFixture {};

TEST_F(EditManifestStoreTest, ARootWithoutStorageLoadsEmptyAndCreatesNothing) {
    const auto manifest = store_.load(root);
    EXPECT_EQ(manifest, (EditManifest{1, root, {}}));
    EXPECT_TRUE(store_.pendingEdits(root).empty());
    EXPECT_TRUE(store_.editsWithCommitMarkers(root).empty());
    store_.cleanupOrphanedStagedFiles(root);
    EXPECT_FALSE(fs::exists(base_));
    EXPECT_EQ(failureOf([&] { store_.load(".."); }), "Invalid path: ..");
    EXPECT_EQ(notifications_, 0);
}

TEST_F(EditManifestStoreTest, AnAddedEditOwnsItsStagedFileAndReadsBackInAnotherStore) {
    const auto edit = test::newFileEdit();
    const auto file = rendered("trimmed audio");
    store_.addEdit(edit, file, root);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(test::readFile(stagedFile(edit)), "trimmed audio");
    EXPECT_EQ(store_.stagedURL(edit, root), stagedFile(edit));
    EXPECT_EQ(notifications_, 1);
    const auto second = test::overwriteEdit();
    store_.addEdit(second, rendered(), root);
    EXPECT_EQ(EditManifestStore(base_).load(root), (EditManifest{1, root, {edit, second}}));
    EXPECT_EQ(namesIn(storage()), (std::set<std::string>{"manifest.json", "staged"}));
}

TEST_F(EditManifestStoreTest, AddRefusesClashesAndLinksAndMovesNothing) {
    const auto edit = staged(test::newFileEdit());
    auto sameId = test::newFileEdit("/Samples/other.wav");
    sameId.id = edit.id;
    const auto file = rendered();
    EXPECT_EQ(failureOf([&] { store_.addEdit(sameId, file, root); }),
              "Mode invariant violated: An edit with this ID already exists.");
    auto sameStaged = test::newFileEdit("/Samples/other.wav");
    sameStaged.stagedFileName = edit.stagedFileName;
    EXPECT_EQ(failureOf([&] { store_.addEdit(sameStaged, file, root); }),
              "Mode invariant violated: A staged file with this name already exists.");
    const auto link = temp_ / "render/link.wav";
    fs::create_symlink(file, link);
    EXPECT_EQ(failureOf([&] { store_.addEdit(test::newFileEdit("/Samples/b.wav"), link, root); }),
              "Edit storage contains a symbolic link: " + link.string());
    const auto squatter = test::newFileEdit("/Samples/c.wav");
    writeFile(stagedFile(squatter), "left by someone");
    EXPECT_EQ(failureOf([&] { store_.addEdit(squatter, file, root); }),
              "I/O error: Staged destination already exists.");
    auto invalid = test::newFileEdit("/Samples/kick.wav");
    EXPECT_EQ(failureOf([&] { store_.addEdit(invalid, file, root); }),
              "Mode invariant violated: saveAsNew requires a different target path");
    EXPECT_TRUE(fs::exists(file));
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(store_.load(root).edits, std::vector{edit});
}

TEST_F(EditManifestStoreTest, AFailedSaveOfAnAddPutsTheRenderedFileBack) {
    store_.setBeforeManifestWrite([] { throw PosixError(ENOSPC, "No space left on device"); });
    const auto file = rendered("keep me");
    EXPECT_EQ(failureOf([&] { store_.addEdit(test::newFileEdit(), file, root); }), "No space left on device");
    EXPECT_EQ(test::readFile(file), "keep me");
    EXPECT_TRUE(namesIn(storage() / "staged").empty());
    EXPECT_FALSE(fs::exists(storage() / "manifest.json"));
    EXPECT_EQ(notifications_, 0);
}

TEST_F(EditManifestStoreTest, ASaveAfterAnOutsideChangeIsStaleUntilReloaded) {
    const auto edit = staged(test::newFileEdit());
    auto manifest = store_.load(root);
    const auto path = storage() / "manifest.json";
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EditManifestStore other(base_);
    other.recordApplyError(edit.id, "The card is gone.", root);
    const auto otherBytes = test::readFile(path);
    manifest.edits[0].applyError = "mine";
    // The other write landing in the same tick of the file system's clock, with the very same date.
    const timespec sameDate[2] = {status.st_atim, status.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), sameDate, 0), 0);
    EXPECT_EQ(failureOf([&] { store_.save(manifest); }),
              "Manifest was modified by another writer — reload and retry.");
    EXPECT_EQ(test::readFile(path), otherBytes);
    manifest = store_.load(root);
    EXPECT_EQ(manifest.edits[0].applyError, "The card is gone.");
    manifest.edits[0].applyError.reset();
    EXPECT_NO_THROW(store_.save(manifest));
}

TEST_F(EditManifestStoreTest, ADateWithinOneMillisecondIsNoChange) {
    staged(test::newFileEdit());
    auto manifest = store_.load(root);
    const auto path = storage() / "manifest.json";
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    auto shifted = status.st_mtim;
    shifted.tv_nsec += 1'000'000;
    if (shifted.tv_nsec >= 1'000'000'000) shifted.tv_sec += 1, shifted.tv_nsec -= 1'000'000'000;
    const timespec times[2] = {status.st_atim, shifted};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    EXPECT_NO_THROW(store_.save(manifest));
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    shifted = status.st_mtim;
    shifted.tv_nsec += 1'000'001;
    if (shifted.tv_nsec >= 1'000'000'000) shifted.tv_sec += 1, shifted.tv_nsec -= 1'000'000'000;
    const timespec further[2] = {status.st_atim, shifted};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), further, 0), 0);
    EXPECT_EQ(failureOf([&] { store_.save(manifest); }),
              "Manifest was modified by another writer — reload and retry.");
}

TEST_F(EditManifestStoreTest, AHandEditedManifestThatBreaksARuleKeepsThePreviousGoodStateOnDisk) {
    const auto edit = staged(test::newFileEdit());
    const auto path = storage() / "manifest.json";
    const auto good = test::readFile(path);
    writeFile(path, good.substr(0, good.size() / 2));
    EXPECT_EQ(failureOf([&] { store_.load(root); }).rfind("Failed to decode manifest: ", 0), 0u);
    EXPECT_NE(failureOf([&] { store_.addEdit(test::newFileEdit("/Samples/b.wav"), rendered(), root); }), "");
    EXPECT_NE(failureOf([&] { store_.discardEdit(edit.id, root); }), "");
    EXPECT_EQ(test::readFile(path), good.substr(0, good.size() / 2));
    EXPECT_TRUE(fs::exists(stagedFile(edit)));
    // A manifest naming a staged file outside staged/ is refused whole, not followed.
    auto escaping = good;
    escaping.replace(escaping.find(edit.stagedFileName + "\""), edit.stagedFileName.size(),
                     "../manifest.json");
    writeFile(path, escaping);
    EXPECT_EQ(failureOf([&] { store_.load(root); }),
              "Invalid path: Invalid path component: ../manifest.json");
}

TEST_F(EditManifestStoreTest, ReplaceKeepsTheSlotAndDropsTheOldFileAndMarker) {
    const auto first = staged(test::newFileEdit("/Samples/a.wav"));
    const auto old = staged(test::newFileEdit("/Samples/b.wav"));
    const auto last = staged(test::newFileEdit("/Samples/c.wav"));
    store_.writeCommitMarker(old.id, root);
    auto replacement = test::newFileEdit("/Samples/b2.wav");
    store_.replaceEdit(old.id, replacement, rendered("new take"), root);
    EXPECT_EQ(store_.load(root).edits, (std::vector{first, replacement, last}));
    EXPECT_FALSE(fs::exists(stagedFile(old)));
    EXPECT_FALSE(fs::exists(markerFile(old)));
    EXPECT_EQ(test::readFile(stagedFile(replacement)), "new take");

    const auto file = rendered();
    auto sameName = test::newFileEdit("/Samples/b3.wav");
    sameName.stagedFileName = replacement.stagedFileName;
    EXPECT_EQ(failureOf([&] { store_.replaceEdit(replacement.id, sameName, file, root); }),
              "Mode invariant violated: Replacement must use a new staged file name.");
    auto clash = test::newFileEdit("/Samples/b3.wav");
    clash.id = first.id;
    EXPECT_EQ(failureOf([&] { store_.replaceEdit(replacement.id, clash, file, root); }),
              "Mode invariant violated: Replacement edit ID or staged file name is already in use.");
    auto applied = test::newFileEdit("/Samples/b3.wav");
    applied.appliedAt = applied.createdAt;
    EXPECT_EQ(failureOf([&] { store_.replaceEdit(replacement.id, applied, file, root); }),
              "Mode invariant violated: A replacement edit must be pending.");
    EXPECT_EQ(
        failureOf([&] { store_.replaceEdit(makeUuid(), test::newFileEdit("/Samples/x.wav"), file, root); }),
        "Manifest not found.");
    store_.markApplied(first, root);
    EXPECT_EQ(
        failureOf([&] { store_.replaceEdit(first.id, test::newFileEdit("/Samples/x.wav"), file, root); }),
        "Mode invariant violated: Applied edits cannot be replaced.");
    EXPECT_TRUE(fs::exists(file));
}

TEST_F(EditManifestStoreTest, RenameGivesANewFileEditAFreeTargetOnly) {
    const auto taken = staged(test::newFileEdit("/Samples/Taken.wav"));
    store_.markApplied(taken, root);
    auto edit = test::newFileEdit("/Samples/a.wav");
    edit.applyError = "Target exists on the card.";
    staged(edit);
    store_.writeCommitMarker(edit.id, root);
    const auto overwrite = staged(test::overwriteEdit());

    EXPECT_EQ(failureOf([&] { store_.renameEditTarget(overwrite.id, "/Samples/x.wav", root); }),
              "Mode invariant violated: renameEditTarget only allowed on saveAsNew edits");
    EXPECT_EQ(
        failureOf([&] { store_.renameEditTarget(edit.id, "/Samples/taken.WAV", root); }),
        "Mode invariant violated: Target path already used by another pending edit: /Samples/taken.WAV");
    EXPECT_EQ(failureOf([&] { store_.renameEditTarget(edit.id, "/Samples//x.wav", root); }),
              "Invalid path: /Samples//x.wav");
    EXPECT_NO_THROW(store_.renameEditTarget(makeUuid(), "/Samples/x.wav", root));

    store_.renameEditTarget(edit.id, "/Samples/Cafe\u0301.wav", root);
    const auto renamed = store_.load(root).edits[1];
    EXPECT_EQ(renamed.targetRelativePath, "/Samples/Caf\u00e9.wav");
    EXPECT_FALSE(renamed.applyError);
    EXPECT_FALSE(fs::exists(markerFile(edit))) << "the marker named the old target";
}

TEST_F(EditManifestStoreTest, DiscardDropsTheRecordThenItsFiles) {
    const auto edit = staged(test::newFileEdit());
    store_.writeCommitMarker(edit.id, root);
    notifications_ = 0;
    store_.discardEdit(makeUuid(), root);
    EXPECT_EQ(notifications_, 0);
    store_.discardEdit(edit.id, root);
    EXPECT_TRUE(store_.load(root).edits.empty());
    EXPECT_FALSE(fs::exists(stagedFile(edit)));
    EXPECT_FALSE(fs::exists(markerFile(edit)));
    EXPECT_EQ(notifications_, 2) << "the save and the marker's removal";
}

TEST_F(EditManifestStoreTest, MarkAppliedKeepsTheRecordAsHistoryAndLaterErrorsAreIgnored) {
    auto edit = test::newFileEdit();
    edit.applyError = "earlier failure";
    staged(edit);
    store_.writeCommitMarker(edit.id, root);
    store_.markApplied(edit, root);
    const auto applied = store_.load(root).edits.at(0);
    ASSERT_TRUE(applied.appliedAt);
    EXPECT_LE(*applied.appliedAt, Clock::now());
    EXPECT_FALSE(applied.applyError);
    EXPECT_FALSE(fs::exists(stagedFile(edit)));
    EXPECT_FALSE(fs::exists(markerFile(edit)));
    EXPECT_TRUE(store_.pendingEdits(root).empty());

    const auto bytes = test::readFile(storage() / "manifest.json");
    store_.recordApplyError(edit.id, "too late", root);
    store_.recordApplyError(makeUuid(), "nobody", root);
    EXPECT_EQ(test::readFile(storage() / "manifest.json"), bytes);
    EXPECT_EQ(failureOf([&] { store_.markApplied(test::newFileEdit(), root); }), "Manifest not found.");
    EXPECT_EQ(failureOf([&] { store_.writeCommitMarker(edit.id, root); }),
              "Mode invariant violated: Pending commit markers are only valid for pending saveAsNew edits.");
}

TEST_F(EditManifestStoreTest, AMarkerIsWrittenOnceAndMustMatchItsEdit) {
    const auto edit = staged(test::newFileEdit());
    const auto overwrite = staged(test::overwriteEdit());
    notifications_ = 0;
    store_.writeCommitMarker(edit.id, root);
    store_.writeCommitMarker(edit.id, root);
    EXPECT_EQ(notifications_, 1);
    EXPECT_EQ(namesIn(storage() / "commit-pending"), std::set<std::string>{edit.id + ".json"});
    EXPECT_EQ(store_.readCommitMarker(edit, root),
              (PendingCommitMarker{1, edit.id, edit.stagedFileName, edit.targetRelativePath}));
    EXPECT_EQ(store_.readCommitMarker(overwrite, root), std::nullopt);
    EXPECT_EQ(store_.editsWithCommitMarkers(root), std::set<std::string>{edit.id});
    EXPECT_EQ(failureOf([&] { store_.writeCommitMarker(overwrite.id, root); }),
              "Mode invariant violated: Pending commit markers are only valid for pending saveAsNew edits.");
    EXPECT_EQ(failureOf([&] { store_.writeCommitMarker(makeUuid(), root); }), "Manifest not found.");

    writeFile(markerFile(edit),
              EditManifestCoding::encodeMarker({1, edit.id, edit.stagedFileName, "/Samples/elsewhere.wav"}));
    const std::string mismatch = "Failed to decode manifest: Pending commit marker does not match its edit.";
    EXPECT_EQ(failureOf([&] { store_.readCommitMarker(edit, root); }), mismatch);
    EXPECT_EQ(failureOf([&] { store_.writeCommitMarker(edit.id, root); }), mismatch);
    EXPECT_EQ(failureOf([&] { store_.editsWithCommitMarkers(root); }), mismatch);
    notifications_ = 0;
    store_.removeCommitMarker(edit.id, root);
    store_.removeCommitMarker(edit.id, root);
    EXPECT_EQ(notifications_, 1);
    EXPECT_TRUE(store_.editsWithCommitMarkers(root).empty());
}

TEST_F(EditManifestStoreTest, TheSweepRemovesOnlyFilesThatNoEditNames) {
    const auto pending = staged(test::newFileEdit("/Samples/a.wav"));
    const auto applied = staged(test::newFileEdit("/Samples/b.wav"));
    store_.markApplied(applied, root);
    writeFile(stagedFile(applied), "still here after a crash");
    writeFile(storage() / "staged/orphan.wav", "from a crash");
    writeFile(storage() / "staged/.hidden", "not ours to judge");
    store_.cleanupOrphanedStagedFiles(root);
    EXPECT_EQ(namesIn(storage() / "staged"),
              (std::set<std::string>{pending.stagedFileName, applied.stagedFileName, ".hidden"}));
}

TEST_F(EditManifestStoreTest, AStagedFileReplacedByAFolderFailsOnlyItsOwnCleanup) {
    const auto discarded = staged(test::newFileEdit("/Samples/a.wav"));
    const auto applied = staged(test::newFileEdit("/Samples/b.wav"));
    for (const auto& edit : {discarded, applied}) {
        fs::remove(stagedFile(edit));
        writeFile(stagedFile(edit) / "inside.wav", "x");
    }
    fs::create_directories(storage() / "staged/orphan-folder");
    EXPECT_EQ(failureOf([&] {
                  store_.discardEdit(discarded.id, root);
              }).rfind("I/O error: Edit was discarded, but staged cleanup failed: ", 0),
              0u);
    EXPECT_NO_THROW(store_.markApplied(applied, root));
    EXPECT_NO_THROW(store_.cleanupOrphanedStagedFiles(root));
    const auto manifest = store_.load(root);
    ASSERT_EQ(manifest.edits.size(), 1u);
    EXPECT_TRUE(manifest.edits[0].appliedAt);
    EXPECT_TRUE(fs::is_directory(stagedFile(applied)));
    auto squatted = test::newFileEdit("/Samples/c.wav");
    fs::create_directories(stagedFile(squatted));
    const auto file = rendered();
    EXPECT_EQ(failureOf([&] { store_.addEdit(squatted, file, root); }),
              "I/O error: Staged destination already exists.");
    EXPECT_TRUE(fs::exists(file));
}

// Every folder of the storage replaced by a symbolic link, and every operation through it, each on a
// fresh storage. What lies behind the link would fail to decode if it were read.
struct LinkedFolder {
    std::string name;
    std::string folder;
    std::set<std::string> operationsThatNeverPassIt;  // every other operation must refuse
};

class EditStorageLinkTest : public test::EditStoreFixture,
                            public ::testing::WithParamInterface<LinkedFolder> {
protected:
    // A pending new-file edit with its marker, then the folder moved aside and linked back.
    EditEntry prepare() {
        fs::remove_all(base_);
        fs::remove_all(elsewhere_);
        EditManifestStore fresh(base_);
        const auto edit = test::newFileEdit();
        fresh.addEdit(edit, rendered(), root);
        fresh.writeCommitMarker(edit.id, root);
        const auto linked = base_ / GetParam().folder;
        fs::rename(linked, elsewhere_);
        fs::create_directory_symlink(elsewhere_, linked);
        for (const auto& file : fs::recursive_directory_iterator(elsewhere_))
            if (file.is_regular_file() && file.path().extension() == ".json")
                writeFile(file.path(), "not json");
        return edit;
    }

    const fs::path elsewhere_ = temp_ / "elsewhere";
};

TEST_P(EditStorageLinkTest, EveryOperationRefusesBeforeReadingThroughTheLink) {
    const std::string refusal =
        "Edit storage contains a symbolic link: " + (base_ / GetParam().folder).string();
    const std::map<std::string, std::function<void(EditManifestStore&, const EditEntry&, const fs::path&)>>
        operations = {
            {"load", [](auto& store, auto&, auto&) { store.load(root); }},
            {"save",
             [](auto& store, auto&, auto&) {
                 store.save(EditManifest{1, root, {}});
             }},
            {"pendingEdits", [](auto& store, auto&, auto&) { store.pendingEdits(root); }},
            {"addEdit", [](auto& store, auto&,
                           auto& file) { store.addEdit(test::newFileEdit("/Samples/x.wav"), file, root); }},
            {"replaceEdit",
             [](auto& store, auto& edit, auto& file) {
                 store.replaceEdit(edit.id, test::newFileEdit("/Samples/x.wav"), file, root);
             }},
            {"renameEditTarget",
             [](auto& store, auto& edit, auto&) { store.renameEditTarget(edit.id, "/Samples/y.wav", root); }},
            {"discardEdit", [](auto& store, auto& edit, auto&) { store.discardEdit(edit.id, root); }},
            {"markApplied", [](auto& store, auto& edit, auto&) { store.markApplied(edit, root); }},
            {"recordApplyError",
             [](auto& store, auto& edit, auto&) { store.recordApplyError(edit.id, "x", root); }},
            {"writeCommitMarker",
             [](auto& store, auto& edit, auto&) { store.writeCommitMarker(edit.id, root); }},
            {"readCommitMarker", [](auto& store, auto& edit, auto&) { store.readCommitMarker(edit, root); }},
            {"removeCommitMarker",
             [](auto& store, auto& edit, auto&) { store.removeCommitMarker(edit.id, root); }},
            {"editsWithCommitMarkers", [](auto& store, auto&, auto&) { store.editsWithCommitMarkers(root); }},
            {"stagedURL", [](auto& store, auto& edit, auto&) { store.stagedURL(edit, root); }},
            {"cleanupOrphanedStagedFiles",
             [](auto& store, auto&, auto&) { store.cleanupOrphanedStagedFiles(root); }},
        };
    for (const auto& [name, operation] : operations) {
        const auto edit = prepare();
        const auto before = namesIn(elsewhere_);
        const auto file = rendered();
        EditManifestStore store(base_);
        const auto failure = failureOf([&] { operation(store, edit, file); });
        if (GetParam().operationsThatNeverPassIt.contains(name)) {
            EXPECT_NE(failure, refusal) << name;
        } else {
            EXPECT_EQ(failure, refusal) << name;
            EXPECT_TRUE(fs::exists(file)) << name;
        }
        EXPECT_EQ(namesIn(elsewhere_), before) << name;
    }
}

// The marker's removal after a save is quiet by design, so those operations pass a linked
// commit-pending/ by; they still never remove anything through it.
INSTANTIATE_TEST_SUITE_P(
    Folders, EditStorageLinkTest,
    ::testing::Values(LinkedFolder{"edits", ".edits", {}}, LinkedFolder{"root", ".edits/M8_4C3C645B", {}},
                      LinkedFolder{"staged",
                                   ".edits/M8_4C3C645B/staged",
                                   {"save", "readCommitMarker", "removeCommitMarker"}},
                      LinkedFolder{"commitPending",
                                   ".edits/M8_4C3C645B/commit-pending",
                                   {"load", "save", "pendingEdits", "addEdit", "replaceEdit",
                                    "renameEditTarget", "discardEdit", "markApplied", "recordApplyError",
                                    "stagedURL", "cleanupOrphanedStagedFiles"}}),
    [](const ::testing::TestParamInfo<LinkedFolder>& linked) { return linked.param.name; });

// Two processes adding edits to one set at once: each add either lands whole or is refused as stale
// and leaves nothing behind, and the manifest always loads.
// Two processes adding edits to the same storage at once: each edit a writer was told it added
// is in the manifest, and each staged file belongs to an edit of it.
class TwoWritersTest : public test::EditStoreFixture {
protected:
    void expectTwoWritersLoseNothing();
};

void TwoWritersTest::expectTwoWritersLoseNothing() {
    constexpr int addsPerWriter = 25;
    // Ids and rendered names carry the writer's tag: a forked child draws the same random numbers.
    const auto addAll = [&](EditManifestStore& store, const std::string& tag,
                            std::vector<std::string>& accepted) {
        for (int n = 0; n < addsPerWriter; ++n) {
            auto edit = test::newFileEdit("/Samples/take" + std::to_string(n) + ".wav");
            edit.id.replace(0, tag.size(), tag);
            edit.stagedFileName = edit.id + ".wav";
            const auto file = temp_ / "render" / edit.stagedFileName;
            writeFile(file, "take");
            try {
                store.addEdit(edit, file, root);
                accepted.push_back(edit.id);
            } catch (const EditManifestStoreError& error) {
                if (error.kind() != EditManifestStoreError::Kind::staleManifest) throw;
            }
        }
    };
    test::ChildReport child([&] {
        EditManifestStore other(base_);
        std::vector<std::string> childAccepted;
        addAll(other, "BBBBBBBB", childAccepted);
        std::string ids;
        for (const auto& id : childAccepted) ids += id + "\n";
        return ids;
    });
    std::vector<std::string> accepted;
    addAll(store_, "AAAAAAAA", accepted);
    const auto childIds = child.wait();
    ASSERT_NE(childIds, "child failed");
    for (std::size_t at = 0; at < childIds.size(); at = childIds.find('\n', at) + 1)
        accepted.push_back(childIds.substr(at, childIds.find('\n', at) - at));

    const auto manifest = EditManifestStore(base_).load(root);
    std::set<std::string> listed, stagedNames;
    for (const auto& edit : manifest.edits) listed.insert(edit.id), stagedNames.insert(edit.stagedFileName);
    EXPECT_EQ(listed, std::set<std::string>(accepted.begin(), accepted.end()));
    EXPECT_EQ(namesIn(storage() / "staged"), stagedNames);
}

TEST_F(TwoWritersTest, NeverLoseAnAcceptedEdit) {
    store_.save(EditManifest{1, root, {}});
    expectTwoWritersLoseNothing();
}

// Neither writer finds a manifest, so both would create one.
TEST_F(TwoWritersTest, StartingWithoutAManifestNeverLoseAnAcceptedEdit) {
    expectTwoWritersLoseNothing();
}

}  // namespace
}  // namespace tapekeep
