// The name of a trim saved outside the staging flow: its default, the extension it always gets, and
// the refusal to save over the sample itself, by name or through a hard link.

#include "edits/TrimSaveName.h"

#include <gtest/gtest.h>

#include "TempDir.h"
#include "edits/TrimSaveError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;

TEST(TrimSaveNameTest, ATrimIsAlwaysSavedAsAWavBesideItsStem) {
    EXPECT_EQ(TrimSaveName::defaultName("/card/Samples/kick.aif"), "kick-trim.wav");
    EXPECT_EQ(TrimSaveName::savePath("/card/kick.wav", "/out/kick short"), fs::path("/out/kick short.wav"));
    EXPECT_EQ(TrimSaveName::savePath("/card/kick.wav", "/out/kick.WAV"), fs::path("/out/kick.WAV"));
    EXPECT_EQ(TrimSaveName::savePath("/card/kick.wav", "/out/kick.flac"), fs::path("/out/kick.flac.wav"));
}

TEST(TrimSaveNameTest, TheSampleItselfIsNeverTheDestination) {
    test::TempDir temp;
    test::writeFile(temp / "kick.wav", "sample");
    fs::create_hard_link(temp / "kick.wav", temp / "linked.wav");
    for (const fs::path& chosen :
         {temp / "kick.wav", temp / "kick", temp / "." / "kick.wav", temp / "linked.wav"}) {
        SCOPED_TRACE(chosen);
        try {
            TrimSaveName::savePath(temp / "kick.wav", chosen);
            ADD_FAILURE() << "accepted";
        } catch (const TrimSaveError& error) {
            EXPECT_EQ(error.description(),
                      "Refusing to overwrite the original sample. Choose a different name.");
        }
    }
}

}  // namespace
}  // namespace tapekeep
