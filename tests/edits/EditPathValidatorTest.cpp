#include <gtest/gtest.h>

#include <filesystem>
#include <stop_token>
#include <string>

#include "TempDir.h"
#include "core/Cancelled.h"
#include "edits/EditNameSuggester.h"
#include "edits/EditNameSuggesterError.h"
#include "edits/EditPathValidator.h"
#include "edits/EditPathValidatorError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::string_literals;
using test::writeFile;

// The text of the first rule that the text breaks, or "" when it passes.
std::string refusalOf(void (*check)(std::string_view), const std::string& text) {
    try {
        check(text);
        return "";
    } catch (const EditPathValidatorError& error) {
        return error.description();
    }
}

std::string pathRefusal(const std::string& path) {
    return refusalOf(EditPathValidator::validatePath, path);
}

std::string componentRefusal(const std::string& name) {
    return refusalOf(EditPathValidator::validateComponent, name);
}

TEST(EditPathValidatorTest, RefusesEveryPathThatCouldWriteOutsideItsPlaceWithItsText) {
    const std::pair<std::string, std::string> cases[] = {
        {"/Samples/kick.wav", ""},
        {"/Samples/..hidden.wav", ""},
        {"/1:/a.wav", ""},
        {"/Samples/a b/ü.wav", ""},
        {"Samples/a.wav", "Path must start with '/': Samples/a.wav"},
        {"", "Path must start with '/': "},
        {"/Samples//a.wav", "Path has empty component (e.g. //): /Samples//a.wav"},
        {"/Samples/a.wav/", "Path has empty component (e.g. //): /Samples/a.wav/"},
        {"/", "Path has empty component (e.g. //): /"},
        {"/Samples/../System/STARTUP.m8s", "Path contains '..': /Samples/../System/STARTUP.m8s"},
        {"/..", "Path contains '..': /.."},
        {"/Samples/./a.wav", "Path contains '..': /Samples/./a.wav"},
        {"/Samples/a\\b.wav", "Path contains '..': /Samples/a\\b.wav"},
        {"/Samples/..\\..\\x.wav", "Path contains '..': /Samples/..\\..\\x.wav"},
        {"/C:/a.wav", "Path has Windows drive letter: /C:/a.wav"},
        {"/Samples/x:1.wav", "Path has Windows drive letter: /Samples/x:1.wav"},
        {"/Samples/é:1.wav", "Path has Windows drive letter: /Samples/é:1.wav"},
        // A letter with a combining mark is one character, so the colon is still the second.
        {"/Samples/e\u0301:1.wav", "Path has Windows drive letter: /Samples/e\u0301:1.wav"},
        {"/Samples/ab:1.wav", ""},
        {"/Samples/:a.wav", ""},
    };
    for (const auto& [path, refusal] : cases) EXPECT_EQ(pathRefusal(path), refusal) << path;
}

TEST(EditPathValidatorTest, ANulByteWinsOverEveryOtherRule) {
    // The text ends where the path's NUL stands, as any C string of it would.
    EXPECT_EQ(pathRefusal("Samples/a\0b/../x.wav"s), "Path contains null byte: Samples/a");
    EXPECT_EQ(pathRefusal("/Samples/a\0.wav"s), "Path contains null byte: /Samples/a");
}

TEST(EditPathValidatorTest, AComponentIsOneNameWithoutSeparators) {
    EXPECT_EQ(componentRefusal("backup-2026-01-01-100000"), "");
    EXPECT_EQ(componentRefusal("..hidden"), "");
    for (const auto& name : {""s, "."s, ".."s, "a/b"s, "a\\b"s})
        EXPECT_EQ(componentRefusal(name), "Invalid path component: " + name) << name;
    EXPECT_EQ(componentRefusal("a\0b"s), "Invalid path component: a");
}

TEST(EditPathValidatorTest, NormalisesSlashesAndFormButKeepsCaseAndDots) {
    EXPECT_EQ(EditPathValidator::normalizePath(""), "/");
    EXPECT_EQ(EditPathValidator::normalizePath("\\Samples\\\\A.wav/"), "/Samples/A.wav");
    EXPECT_EQ(EditPathValidator::normalizePath("Samples/../x.wav"), "/Samples/../x.wav");
    EXPECT_EQ(EditPathValidator::normalizePath("/Samples/e\u0301.wav"), "/Samples/\u00e9.wav");
}

TEST(EditPathValidatorTest, PathsAreEqualWhateverTheirCaseSlashesAndNormalForm) {
    EXPECT_TRUE(EditPathValidator::pathsEqual("/Samples/A.wav", "\\Samples\\a.wav/"));
    EXPECT_TRUE(EditPathValidator::pathsEqual("/Samples/Cafe\u0301.wav", "/samples/CAF\u00c9.WAV"));
    EXPECT_FALSE(EditPathValidator::pathsEqual("/Samples/a.wav", "/Samples/b.wav"));
    EXPECT_FALSE(EditPathValidator::pathsEqual("/Samples/a.wav", "/Samples/a.wav.wav"));
}

TEST(EditPathValidatorTest, ACardPathIsTheFileBelowTheRootWithLinksResolved) {
    test::TempDir temp;
    const auto card = temp / "card";
    writeFile(card / "Samples/kick.wav", "x");
    writeFile(temp / "cardish/a.wav", "x");
    fs::create_directory_symlink(card, temp / "link");
    EXPECT_EQ(EditPathValidator::cardRelativePath(card / "Samples/kick.wav", card), "/Samples/kick.wav");
    EXPECT_EQ(EditPathValidator::cardRelativePath(temp / "link/Samples/kick.wav", card), "/Samples/kick.wav");
    EXPECT_EQ(EditPathValidator::cardRelativePath(card / "Samples/../Samples/kick.wav", temp / "link"),
              "/Samples/kick.wav");
    EXPECT_EQ(EditPathValidator::cardRelativePath(card, card), "/");
    EXPECT_EQ(EditPathValidator::cardRelativePath(temp / "cardish/a.wav", card), std::nullopt);
    EXPECT_EQ(EditPathValidator::cardRelativePath(temp / "card/../x.wav", card), std::nullopt);
    EXPECT_EQ(EditPathValidator::cardRelativePath(card / "Samples/kick.wav", "/"),
              EditPathValidator::normalizePath(fs::canonical(card / "Samples/kick.wav").string()));
}

// Files of the given sizes whose bytes are equal except, where asked, the last one.
class ContentsEqualTest : public ::testing::Test {
protected:
    fs::path file(const std::string& name, std::size_t size, char last = 'a') {
        std::string bytes(size, 'a');
        if (size > 0) bytes.back() = last;
        writeFile(temp_ / name, bytes);
        return temp_ / name;
    }

    static std::string refusal(const fs::path& first, const fs::path& second,
                               const std::stop_token& token = {}) {
        try {
            EditPathValidator::contentsEqual(first, second, token);
            return "";
        } catch (const EditPathValidatorError& error) {
            return error.description();
        }
    }

    test::TempDir temp_;
};

TEST_F(ContentsEqualTest, EqualFilesPassAndAnyDifferenceFails) {
    constexpr std::size_t mebibyte = 1'048'576;
    EXPECT_EQ(refusal(file("e1", 0), file("e2", 0)), "");
    EXPECT_EQ(refusal(file("big1", 3 * mebibyte + 5), file("big2", 3 * mebibyte + 5)), "");
    const auto differs = "Copied content does not match the source file.";
    EXPECT_EQ(refusal(file("empty", 0), file("one", 1)), differs);
    EXPECT_EQ(refusal(file("one", 1), file("empty", 0)), differs);
    EXPECT_EQ(refusal(file("last1", 2 * mebibyte + 1), file("last2", 2 * mebibyte + 1, 'b')), differs);
    // Equal for a whole chunk, then one file ends exactly at the chunk's end.
    EXPECT_EQ(refusal(file("chunk", mebibyte), file("chunkAndOne", mebibyte + 1)), differs);
    EXPECT_EQ(refusal(file("chunkAndOne", mebibyte + 1), file("chunk", mebibyte)), differs);
}

TEST_F(ContentsEqualTest, AMissingFileAndACancellationArePassedOn) {
    const auto present = file("present", 10);
    EXPECT_THROW(EditPathValidator::contentsEqual(present, temp_ / "missing"), std::exception);
    try {
        EditPathValidator::contentsEqual(temp_ / "missing", present);
        FAIL();
    } catch (const EditPathValidatorError&) {
        FAIL() << "a read error is no difference";
    } catch (const std::exception& error) {
        EXPECT_NE(std::string(error.what()).find("missing"), std::string::npos);
    }
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(EditPathValidator::contentsEqual(present, present, stop.get_token()), Cancelled);
}

TEST(EditNameSuggesterTest, SuggestsTheFirstFreeTrimNameBesideTheSource) {
    using EditNameSuggester::suggestTrimName;
    EXPECT_EQ(suggestTrimName("/Samples/kick.aif", {}), "/Samples/kick_trim.wav");
    EXPECT_EQ(suggestTrimName("/Samples/kick.aif", {"/samples/KICK_TRIM.WAV"}), "/Samples/kick_trim_2.wav");
    EXPECT_EQ(suggestTrimName("/kick.wav", {}), "/kick_trim.wav");
    EXPECT_EQ(suggestTrimName("\\Drums\\Kick.WAV", {"/Drums/kick_trim.wav", "Drums//kick_trim_2.wav"}),
              "/Drums/Kick_trim_3.wav");
    EXPECT_EQ(suggestTrimName("/Samples/Cafe\u0301.wav", {"/Samples/caf\u00e9_trim.wav"}),
              "/Samples/Caf\u00e9_trim_2.wav");
}

TEST(EditNameSuggesterTest, GivesUpAfterNinetyNineNames) {
    std::vector<std::string> inUse{"/Samples/kick_trim.wav"};
    for (int n = 2; n <= 98; ++n) inUse.push_back("/Samples/kick_trim_" + std::to_string(n) + ".wav");
    EXPECT_EQ(EditNameSuggester::suggestTrimName("/Samples/kick.wav", inUse), "/Samples/kick_trim_99.wav");
    inUse.push_back("/Samples/kick_trim_99.wav");
    try {
        EditNameSuggester::suggestTrimName("/Samples/kick.wav", inUse);
        FAIL();
    } catch (const EditNameSuggesterError& error) {
        EXPECT_EQ(error.description(), "Too many trim variants — pick a custom name.");
    }
}

}  // namespace
}  // namespace tapekeep
