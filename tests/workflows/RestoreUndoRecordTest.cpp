#include "workflows/RestoreUndoRecord.h"

#include <gtest/gtest.h>

#include "FileContent.h"
#include "TempDir.h"
#include "backup/RestoreUndoError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;

TEST(RestoreUndoRecordTest, ASetWithoutARecordHasNothingToUndo) {
    test::TempDir temp;
    EXPECT_EQ(RestoreUndoRecord::read(temp.path()), std::nullopt);
    EXPECT_NO_THROW(RestoreUndoRecord::remove(temp.path()));
}

TEST(RestoreUndoRecordTest, AWrittenRecordReadsBackAndIsGoneOnceRemoved) {
    test::TempDir temp;
    const RestoreUndoRecord record{"backup-2026-11-23-111500",
                                   temp.path() / "backup-2026-01-01-100000",
                                   {"Samples/pad.wav"},
                                   {"Instruments/BASS.m8i", "Songs/NEW SONG.m8s"}};
    record.write(temp.path());
    EXPECT_EQ(RestoreUndoRecord::read(temp.path()), record);
    EXPECT_EQ(test::namesIn(temp.path()), std::vector<std::string>{RestoreUndoRecord::fileName});
    RestoreUndoRecord::remove(temp.path());
    EXPECT_EQ(RestoreUndoRecord::read(temp.path()), std::nullopt);
}

TEST(RestoreUndoRecordTest, ADamagedRecordIsUnreadableNotEmpty) {
    test::TempDir temp;
    test::writeFile(temp.path() / RestoreUndoRecord::fileName, "{\"safetyVersion\": ");
    try {
        (void)RestoreUndoRecord::read(temp.path());
        FAIL() << "a damaged record was read";
    } catch (const RestoreUndoError& error) {
        EXPECT_EQ(error.kind(), RestoreUndoError::Kind::recordUnreadable);
        EXPECT_TRUE(error.description().starts_with("The record of the last restore cannot be read: "));
    }
}

}  // namespace
}  // namespace tapekeep
