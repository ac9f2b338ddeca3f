// A file or folder of a version copied back to a card that is a plain folder here, with the real rsync
// and the real read-back, and with the card's checks, lease and (where a failure is provoked) rsync
// replaced by recorders: links on the way, refusals, the lease on every path, and what the read-back
// catches.

#include "workflows/BrowseCopyOperation.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "CardLocks.h"
#include "FileContent.h"
#include "TempDir.h"
#include "backup/RestoreError.h"
#include "cards/OperationLock.h"
#include "cards/OperationLockError.h"
#include "content/BrowseFileError.h"
#include "core/Cancelled.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::pseudoRandomBytes;
using test::readFile;
using test::treeOf;
using test::writeFile;
using Kind = BrowseFileError::Kind;

constexpr std::size_t block = BrowseCopyOperation::blockSize;

// The BrowseFileError the call throws; a failure of the test when it throws none or another error.
std::optional<BrowseFileError> browseErrorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const BrowseFileError& error) {
        return error;
    } catch (const std::exception& other) {
        ADD_FAILURE() << "another error: " << other.what();
        return std::nullopt;
    }
    ADD_FAILURE() << "no error";
    return std::nullopt;
}

class BrowseCopyOperationTest : public testing::Test {
protected:
    BrowseCopyOperationTest() { fs::create_directories(card.mountPath); }

    fs::path copy(const fs::path& source, std::stop_token token = {}) {
        const BrowseCopyOperation operation(dependencies());
        return operation.copy(
            {card.mountPath, source, version, card, "/usr/bin/rsync"},
            [this](const std::string& line) { lines.push_back(line); }, token);
    }

    BrowseCopyOperation::Dependencies dependencies() {
        return {
            .validateVolume =
                [this](const SDCard& checked, std::stop_token) {
                    EXPECT_EQ(checked, card);
                    ++validations;
                    if (onValidation) onValidation(validations);
                },
            .run =
                [this](const std::string& rsyncPath, const std::vector<std::string>& arguments,
                       const BackupOperation::LineHandler& onLine, std::stop_token token) {
                    ++runs;
                    return rsync(rsyncPath, arguments, onLine, token);
                },
            .verifyContents = &BrowseCopyOperation::verifyContents,
            .acquire =
                [this](const VolumeUUID& uuid) {
                    ++acquisitions;
                    return Lease{uuid, OperationKind::browse};
                },
            .release = [this](const Lease&) { ++releases; },
        };
    }

    // The recorders' counts, in the order validations, runs, acquisitions, releases.
    [[nodiscard]] std::vector<int> counts() const { return {validations, runs, acquisitions, releases}; }

    test::TempDir temp;
    const SDCard card{temp / "card", "M8", "4C3C-645B"};
    fs::path version = temp / "backups/M8_4C3C645B/backup-2026-11-23-101500";
    fs::path outside = temp / "outside";  // where a link on the card would lead a copy
    int validations = 0, runs = 0, acquisitions = 0, releases = 0;
    std::function<void(int call)> onValidation;
    BackupOperation::RsyncRunner rsync = BackupOperation::defaultRsyncRunner();
    std::vector<std::string> lines;
};

TEST_F(BrowseCopyOperationTest, AFileReturnsToItsPlaceAndTheFoldersItNeedsAreMade) {
    const std::string song = pseudoRandomBytes(2 * block + 17, 1);
    writeFile(version / "Songs/Live/GIG.m8s", song);
    writeFile(card.mountPath / "Songs/OTHER.m8s", "the card's own");

    EXPECT_EQ(copy(version / "Songs/Live/GIG.m8s"), card.mountPath / "Songs/Live/GIG.m8s");

    EXPECT_EQ(readFile(card.mountPath / "Songs/Live/GIG.m8s"), song);
    EXPECT_EQ(readFile(card.mountPath / "Songs/OTHER.m8s"), "the card's own");
    EXPECT_EQ(counts(), (std::vector{4, 1, 1, 1}));  // the card checked before and after each step
    EXPECT_FALSE(lines.empty());
}

// A folder comes back with what lies below it, and the card's other files stay: nothing is deleted.
// A source spelled with a trailing "/" or through ".." lands in the same place.
TEST_F(BrowseCopyOperationTest, AFolderReturnsWithItsContentAndTheCardKeepsItsOwnFiles) {
    writeFile(version / "Samples/Drums/kick.wav", pseudoRandomBytes(block + 3, 2));
    writeFile(version / "Samples/pad.wav", "pad");
    writeFile(version / "Samples/.DS_Store", "litter");
    writeFile(card.mountPath / "Samples/mine.wav", "the card's own");

    EXPECT_EQ(copy(version / "Samples/"), card.mountPath / "Samples");
    EXPECT_EQ(copy(version / "Songs/../Samples/Drums"), card.mountPath / "Samples/Drums");

    EXPECT_EQ(treeOf(card.mountPath / "Samples"), (std::map<std::string, std::string>{
                                                      {"Drums", "/"},
                                                      {"Drums/kick.wav", pseudoRandomBytes(block + 3, 2)},
                                                      {"mine.wav", "the card's own"},
                                                      {"pad.wav", "pad"},
                                                  }));
}

// A link on the card would carry the copy off it: refused before rsync, with the link's path, and the
// place it leads to stays as it was.
TEST_F(BrowseCopyOperationTest, ALinkOnTheWayToTheDestinationRefusesTheCopyBeforeRsync) {
    writeFile(version / "Songs/Live/GIG.m8s", "gig");
    writeFile(version / "Samples/kick.wav", "kick");
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, card.mountPath / "Songs");
    fs::create_directories(card.mountPath / "Samples");
    fs::create_symlink(outside / "kick.wav", card.mountPath / "Samples/kick.wav");

    for (const auto& [source, link] :
         {std::pair{version / "Songs/Live/GIG.m8s", card.mountPath / "Songs"},
          std::pair{version / "Samples/kick.wav", card.mountPath / "Samples/kick.wav"}}) {
        const auto error = browseErrorOf([&] { copy(source); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->kind(), Kind::destinationSymlink);
        EXPECT_NE(error->description().find(link.string()), std::string::npos) << error->description();
    }
    EXPECT_EQ(validations, 2);  // each refused at the first look, before the folders are made
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(releases, 2);
    EXPECT_TRUE(fs::is_empty(outside));
}

// The card may change between the first look and the making of the folders: a link that appears
// meanwhile is caught by the second look, still before rsync.
TEST_F(BrowseCopyOperationTest, ALinkPlantedWhileTheFoldersAreMadeIsCaughtBeforeRsync) {
    writeFile(version / "Songs/Live/GIG.m8s", "gig");
    fs::create_directories(outside);
    onValidation = [&](int call) {
        if (call == 2) fs::create_symlink(outside / "GIG.m8s", card.mountPath / "Songs/Live/GIG.m8s");
    };

    const auto error = browseErrorOf([&] { copy(version / "Songs/Live/GIG.m8s"); });

    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), Kind::destinationSymlink);
    EXPECT_EQ(error->payload(), (card.mountPath / "Songs/Live/GIG.m8s").string());
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(fs::is_empty(outside));
}

TEST_F(BrowseCopyOperationTest, TheLinkWalkStopsAtWhatIsNotThereAndRefusesWhatIsNotBelowTheRoot) {
    fs::create_directories(card.mountPath / "Songs");
    EXPECT_NO_THROW(
        BrowseCopyOperation::refuseSymbolicLinks(card.mountPath / "Songs/New/a.m8s", card.mountPath));
    for (const fs::path& destination : {card.mountPath, card.mountPath / "..",
                                        card.mountPath / "Songs/../../elsewhere", temp / "card2/a"}) {
        const auto error =
            browseErrorOf([&] { BrowseCopyOperation::refuseSymbolicLinks(destination, card.mountPath); });
        ASSERT_TRUE(error) << destination;
        EXPECT_EQ(error->kind(), Kind::sourceOutsideVersion) << destination;
    }
}

// What is refused before the card is touched: no identity, or a source that is not the version's.
TEST_F(BrowseCopyOperationTest, ASourceOutsideTheVersionOrACardWithoutIdentityIsRefusedBeforeTheLease) {
    writeFile(temp / "backups/M8_4C3C645B/secret.m8s", "not in the version");
    writeFile(version / "Songs/GIG.m8s", "gig");
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, version / "Away");
    writeFile(outside / "x.m8s", "outside");

    const BrowseCopyOperation operation(dependencies());
    const auto noIdentity = browseErrorOf([&] {
        operation.copy(
            {card.mountPath, version / "Songs/GIG.m8s", version, {card.mountPath, "M8", ""}, "rsync"}, {},
            {});
    });
    ASSERT_TRUE(noIdentity);
    EXPECT_EQ(noIdentity->kind(), Kind::missingVolumeIdentity);
    for (const fs::path& source :
         {version / "../secret.m8s", version / "Songs/../../secret.m8s", version, version / "Away/x.m8s"}) {
        const auto error = browseErrorOf([&] { copy(source); });
        ASSERT_TRUE(error) << source;
        EXPECT_EQ(error->kind(), Kind::sourceOutsideVersion) << source;
    }
    EXPECT_EQ(counts(), (std::vector{0, 0, 0, 0}));
    EXPECT_TRUE(fs::is_empty(card.mountPath));
}

// A link inside the version is never copied, however it is spelled: rsync does not run.
TEST_F(BrowseCopyOperationTest, ASourceThatIsALinkIsUnsupported) {
    writeFile(version / "Songs/GIG.m8s", "gig");
    fs::create_symlink("GIG.m8s", version / "Songs/ALIAS.m8s");
    fs::create_directory_symlink("Songs", version / "Tunes");

    for (const fs::path& source : {version / "Songs/ALIAS.m8s", version / "Tunes", version / "Tunes/"}) {
        const auto error = browseErrorOf([&] { copy(source); });
        ASSERT_TRUE(error) << source;
        EXPECT_EQ(error->kind(), Kind::unsupportedSource) << source;
    }
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(releases, 3);
    EXPECT_FALSE(fs::exists(card.mountPath / "Songs/GIG.m8s"));
}

// Whatever ends the copy after the lease is taken, the lease is given back exactly once, and the
// failure arrives as it was raised.
TEST_F(BrowseCopyOperationTest, TheLeaseIsReleasedOnceWhateverEndsTheCopy) {
    writeFile(version / "Songs/GIG.m8s", "gig");

    copy(version / "Songs/GIG.m8s");
    EXPECT_EQ(releases, 1) << "success";

    for (const int status : {23, 24, 1}) {
        releases = 0;
        rsync = [status](auto&&...) { return status; };
        const auto error = browseErrorOf([&] { copy(version / "Songs/GIG.m8s"); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->kind(), Kind::transferFailed);
        EXPECT_EQ(error->payload(), std::to_string(status));
        EXPECT_EQ(releases, 1) << "rsync exit " << status;
    }

    rsync = BackupOperation::defaultRsyncRunner();
    for (const int failingCall : {1, 2, 3, 4}) {
        releases = validations = 0;
        onValidation = [failingCall](int call) {
            if (call == failingCall) throw RestoreError::volumeUnmounted();
        };
        EXPECT_THROW(copy(version / "Songs/GIG.m8s"), RestoreError) << "validation " << failingCall;
        EXPECT_EQ(releases, 1) << "validation " << failingCall;
    }

    onValidation = {};
    releases = 0;
    std::stop_source stop;
    rsync = [&stop](auto&&...) {
        stop.request_stop();
        return 20;  // what rsync says when it is stopped
    };
    EXPECT_THROW(copy(version / "Songs/GIG.m8s", stop.get_token()), Cancelled);
    EXPECT_EQ(releases, 1) << "cancelled";
}

// With the standard set: a card held by a backup is refused with the holder's kind and nothing is
// written; a card gone from its mount path fails as a restore's does; a free card is copied to and
// left free.
TEST_F(BrowseCopyOperationTest, TheStandardSetHoldsTheCardsBrowseLeaseAndChecksItsMountPath) {
    test::keepCardLocksIn(temp / "runtime");
    writeFile(version / "Songs/GIG.m8s", "gig");
    std::optional<SDCard> mounted = card;
    const BrowseCopyOperation operation(
        BrowseCopyOperation::standardDependencies([&](const std::string& uuid, std::stop_token) {
            EXPECT_EQ(uuid, card.diskUtilUUID);
            return mounted ? ValidateResult::found(*mounted) : ValidateResult::notFound();
        }));
    const BrowseCopyOperation::Request request{card.mountPath, version / "Songs/GIG.m8s", version, card,
                                               "/usr/bin/rsync"};
    auto& lock = OperationLock::shared();

    const Lease backup = lock.acquire(VolumeUUID{card.diskUtilUUID}, OperationKind::backup);
    try {
        operation.copy(request, {}, {});
        ADD_FAILURE() << "copied while a backup holds the card";
    } catch (const OperationLockError& error) {
        EXPECT_EQ(error.existing(), OperationKind::backup);
    }
    lock.release(backup);
    EXPECT_TRUE(fs::is_empty(card.mountPath));

    mounted->mountPath = temp / "elsewhere";
    EXPECT_THROW(operation.copy(request, {}, {}), RestoreError);
    mounted.reset();
    EXPECT_THROW(operation.copy(request, {}, {}), RestoreError);
    EXPECT_FALSE(lock.isActive(VolumeUUID{card.diskUtilUUID}));

    mounted = card;
    EXPECT_EQ(operation.copy(request, {}, {}), card.mountPath / "Songs/GIG.m8s");
    EXPECT_EQ(readFile(card.mountPath / "Songs/GIG.m8s"), "gig");
    EXPECT_FALSE(lock.isActive(VolumeUUID{card.diskUtilUUID}));
}

class VerifyContentsTest : public testing::Test {
protected:
    std::optional<BrowseFileError> verificationError() {
        return browseErrorOf([&] { BrowseCopyOperation::verifyContents(source, destination, {}); });
    }
    void expectDifferenceAt(const std::string& relative, const std::string& what) {
        const auto error = verificationError();
        ASSERT_TRUE(error) << what;
        EXPECT_EQ(error->kind(), Kind::verificationFailed) << what;
        EXPECT_EQ(error->payload(), (destination / relative).string()) << what;
    }
    void copyAcross() {
        fs::remove_all(destination);
        fs::create_directories(destination.parent_path());
        fs::copy(source, destination, fs::copy_options::recursive);
    }

    test::TempDir temp;
    fs::path source = temp / "version/Samples";
    fs::path destination = temp / "card/Samples";
};

TEST_F(VerifyContentsTest, ADifferenceInAnyBlockOrInLengthIsCaught) {
    const std::string bytes = pseudoRandomBytes(2 * block + 100, 3);
    writeFile(source / "a.wav", bytes);
    writeFile(source / "b.wav", pseudoRandomBytes(block, 4));
    copyAcross();
    EXPECT_NO_THROW(BrowseCopyOperation::verifyContents(source, destination, {}));
    EXPECT_NO_THROW(BrowseCopyOperation::verifyContents(source / "a.wav", destination / "a.wav", {}));

    std::string changed = bytes;
    changed[block + 10] ^= 0x01;
    writeFile(destination / "a.wav", changed);
    expectDifferenceAt("a.wav", "a byte in the second block");
    writeFile(destination / "a.wav", bytes + "x");
    expectDifferenceAt("a.wav", "one byte more");
    writeFile(destination / "a.wav", bytes.substr(0, 2 * block));
    expectDifferenceAt("a.wav", "the last block missing");
    const auto alone = browseErrorOf(
        [&] { BrowseCopyOperation::verifyContents(source / "a.wav", destination / "a.wav", {}); });
    ASSERT_TRUE(alone);
    EXPECT_EQ(alone->kind(), Kind::verificationFailed);
    EXPECT_EQ(alone->description(), "The copy on the card does not match the backup: a.wav");
}

TEST_F(VerifyContentsTest, AMissingEntryOrOneOfTheOtherKindIsCaught) {
    writeFile(source / "Drums/kick.wav", "kick");
    writeFile(source / "Drums/Deep/snare.wav", "snare");
    writeFile(source / "pad.wav", "pad");

    copyAcross();
    fs::remove(destination / "Drums/Deep/snare.wav");
    expectDifferenceAt("Drums/Deep/snare.wav", "a missing file");

    copyAcross();
    fs::remove_all(destination / "Drums/Deep");
    writeFile(destination / "Drums/Deep", "a file where a folder should be");
    expectDifferenceAt("Drums/Deep", "a file for a folder");

    copyAcross();
    fs::remove(destination / "pad.wav");
    fs::create_directory(destination / "pad.wav");
    expectDifferenceAt("pad.wav", "a folder for a file");

    copyAcross();
    writeFile(destination / "extra.wav", "the card's own");
    EXPECT_NO_THROW(BrowseCopyOperation::verifyContents(source, destination, {})) << "more on the card";
}

// What no copy carries is not looked for on the card, nor below it.
TEST_F(VerifyContentsTest, SkippedNamesAreLeftOutOnBothSides) {
    writeFile(source / "pad.wav", "pad");
    copyAcross();
    for (const char* name : {".DS_Store", ".Trashes/x", ".fseventsd/0001", ".Spotlight-V100/Store",
                             ".tapekeep-note", ".tapekeep-sizes.json", "._pad.wav", "Drums/.DS_Store"})
        writeFile(source / name, "litter");
    fs::create_directories(destination / "Drums");
    fs::create_symlink("/", destination / ".Trashes");
    EXPECT_NO_THROW(BrowseCopyOperation::verifyContents(source, destination, {}));

    writeFile(source / ".hidden.wav", "kept by rsync, so looked for");
    expectDifferenceAt(".hidden.wav", "a hidden name that is not skipped");
}

TEST_F(VerifyContentsTest, LinksAreUnsupportedAndCancellationEndsTheReadBack) {
    writeFile(source / "pad.wav", pseudoRandomBytes(block, 5));
    copyAcross();
    fs::create_symlink("pad.wav", source / "alias.wav");
    const auto link = verificationError();
    ASSERT_TRUE(link);
    EXPECT_EQ(link->kind(), Kind::unsupportedSource);

    fs::remove(source / "alias.wav");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(BrowseCopyOperation::verifyContents(source, destination, stop.get_token()), Cancelled);
    EXPECT_THROW(
        BrowseCopyOperation::verifyContents(source / "pad.wav", destination / "pad.wav", stop.get_token()),
        Cancelled);
}

}  // namespace
}  // namespace tapekeep
