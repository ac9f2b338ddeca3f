#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "EditRecords.h"
#include "edits/EditManifestCoding.h"
#include "edits/EditManifestStoreError.h"
#include "edits/EditValidation.h"

namespace tapekeep {
namespace {
using Json = nlohmann::json;
using namespace EditManifestCoding;

// A manifest on disk as another program (or a person) may have written it.
Json manifestJson(Json edits = Json::array()) {
    return {{"schemaVersion", 1}, {"backupRootName", "M8_4C3C645B"}, {"edits", std::move(edits)}};
}

Json entryJson() {
    return {{"id", "0F8FAD5B-D9CB-469F-A165-70867728950E"},
            {"kind", "sampleTrim"},
            {"mode", "saveAsNew"},
            {"createdAt", "2025-01-31T12:00:00Z"},
            {"sourceVersionFolder", "backup-2025-01-31-120000"},
            {"sourceRelativePath", "/Samples/kick.wav"},
            {"targetRelativePath", "/Samples/kick_trim.wav"},
            {"stagedFileName", "0F8FAD5B-D9CB-469F-A165-70867728950E.wav"},
            {"affectedSongs", Json::array()},
            {"parameters", {{"sampleTrim", {{"start", 0.25}, {"end", 1.5}, {"originalDuration", 2}}}}}};
}

std::string decodeRefusal(const Json& manifest) {
    try {
        decodeManifest(manifest.dump());
        return "";
    } catch (const EditManifestStoreError& error) {
        return error.description();
    }
}

std::string manifestRefusal(const EditManifest& manifest, const std::string& root = "M8_4C3C645B") {
    try {
        EditValidation::validateManifest(manifest, root);
        return "";
    } catch (const EditManifestStoreError& error) {
        return error.description();
    }
}

TEST(EditManifestCodingTest, ARoundTripKeepsEveryFieldAndWritesSortedKeysWithoutNulls) {
    EditManifest manifest{1, "M8_4C3C645B", {test::newFileEdit(), test::overwriteEdit()}};
    manifest.edits[1].appliedAt = TimePoint(std::chrono::seconds(1'738'328'400));
    manifest.edits[0].applyError = "The card is gone.";
    const auto text = encodeManifest(manifest);
    EXPECT_EQ(decodeManifest(text), manifest);

    EXPECT_LT(text.find("\"backupRootName\""), text.find("\"edits\""));
    EXPECT_LT(text.find("\"edits\""), text.find("\"schemaVersion\""));
    const auto entry = text.find("\"affectedSongs\"");
    EXPECT_LT(entry, text.find("\"applyError\""));
    EXPECT_LT(text.find("\"applyError\""), text.find("\"createdAt\""));
    EXPECT_LT(text.find("\"originalDuration\""), text.find("\"start\""));
    EXPECT_NE(text.find("\"appliedAt\": \"2025-01-31T13:00:00Z\""), std::string::npos);
    EXPECT_NE(text.find("\"createdAt\": \"2025-01-31T12:00:00Z\""), std::string::npos);
    EXPECT_EQ(text.find("null"), std::string::npos);
    EXPECT_NE(text.find("\n  "), std::string::npos) << "pretty-printed";
}

TEST(EditManifestCodingTest, ReadsWhatOthersWriteAndIgnoresUnknownKeys) {
    auto entry = entryJson();
    entry["futureKey"] = {1, 2};
    entry["id"] = "0f8fad5b-d9cb-469f-a165-70867728950e";
    auto manifest = manifestJson({entry});
    manifest["comment"] = "hand-written";
    auto text = manifest.dump();
    const std::string plain = "\"/Samples/kick_trim.wav\"";
    text.replace(text.find(plain), plain.size(), R"("\/Samples\/kick_trim.wav")");
    const auto decoded = decodeManifest(text);
    ASSERT_EQ(decoded.edits.size(), 1u);
    EXPECT_EQ(decoded.edits[0].id, "0F8FAD5B-D9CB-469F-A165-70867728950E");
    EXPECT_EQ(decoded.edits[0].targetRelativePath, "/Samples/kick_trim.wav");
    EXPECT_FALSE(decoded.edits[0].appliedAt);
    EXPECT_FALSE(decoded.edits[0].applyError);
}

TEST(EditManifestCodingTest, RefusesTheWholeFileAtTheFirstBadEntry) {
    const auto refusedWith = [](const char* key, const Json& value) {
        auto entry = entryJson();
        if (value.is_discarded())
            entry.erase(key);
        else
            entry[key] = value;
        return decodeRefusal(manifestJson({entryJson(), entry}));
    };
    const auto discarded = Json(Json::value_t::discarded);
    EXPECT_EQ(refusedWith("createdAt", "2025-01-31T12:00:00.500Z"),
              "Failed to decode manifest: Expected date string to be ISO8601-formatted for 'createdAt'.");
    EXPECT_NE(refusedWith("createdAt", "2025-01-31T12:00:00+01:00"), "");
    EXPECT_NE(refusedWith("createdAt", "2025-02-30T12:00:00Z"), "");
    EXPECT_EQ(refusedWith("appliedAt", nullptr),
              "Failed to decode manifest: Expected a string for 'appliedAt'.");
    EXPECT_EQ(refusedWith("applyError", nullptr),
              "Failed to decode manifest: Expected a string for 'applyError'.");
    EXPECT_EQ(refusedWith("stagedFileName", discarded),
              "Failed to decode manifest: Missing key 'stagedFileName'.");
    EXPECT_NE(refusedWith("affectedSongs", "/Songs/A.m8s"), "");
    EXPECT_NE(refusedWith("kind", "sampleFade"), "");
    EXPECT_NE(refusedWith("mode", "SaveAsNew"), "");
    EXPECT_NE(refusedWith("id", "kick"), "");
    EXPECT_NE(refusedWith("id", "0F8FAD5B-D9CB-469F-A165-70867728950"), "");
    const auto parameters = [&](Json value) { return refusedWith("parameters", std::move(value)); };
    const auto trim = entryJson()["parameters"]["sampleTrim"];
    EXPECT_EQ(parameters({{"sampleTrim", trim}, {"other", Json::object()}}),
              "Failed to decode manifest: Invalid number of keys found, expected one.");
    EXPECT_EQ(parameters(Json::object()),
              "Failed to decode manifest: Invalid number of keys found, expected one.");
    EXPECT_NE(parameters({{"sampleFade", trim}}), "");
    EXPECT_NE(parameters({{"sampleTrim", {{"start", "0.25"}, {"end", 1.5}, {"originalDuration", 2}}}}), "");
    EXPECT_NE(decodeRefusal(Json::array()), "");
    EXPECT_NE(decodeRefusal(manifestJson({entryJson(), 5})), "");
    try {
        decodeManifest("{\"schemaVersion\":1,");
        FAIL();
    } catch (const EditManifestStoreError& error) {
        EXPECT_EQ(error.kind(), EditManifestStoreError::Kind::decodingFailed);
    }
}

TEST(EditManifestCodingTest, AMarkerIsCompactInItsOwnKeyOrder) {
    const PendingCommitMarker marker{1, "0F8FAD5B-D9CB-469F-A165-70867728950E", "a.wav",
                                     "/Samples/a_trim.wav"};
    EXPECT_EQ(encodeMarker(marker),
              R"({"schemaVersion":1,"editID":"0F8FAD5B-D9CB-469F-A165-70867728950E",)"
              R"("stagedFileName":"a.wav","targetRelativePath":"/Samples/a_trim.wav"})");
    EXPECT_EQ(decodeMarker(encodeMarker(marker)), marker);
}

TEST(EditValidationTest, AManifestBelongsToOneRootAndOneSchema) {
    const auto empty = decodeManifest(R"({"backupRootName":"x","edits":[],"schemaVersion":1})");
    EXPECT_EQ(manifestRefusal(empty, "x"), "");
    EXPECT_EQ(manifestRefusal(empty, "y"),
              "Failed to decode manifest: Manifest belongs to a different backup root.");
    EXPECT_EQ(manifestRefusal(EditManifest{2, "x", {}}, "x"),
              "Failed to decode manifest: Unsupported schema version 2.");
    EXPECT_EQ(manifestRefusal(EditManifest{1, "..", {}}, ".."), "Invalid path: ..");
    EXPECT_EQ(manifestRefusal(EditManifest{1, "a/b", {}}, "a/b"), "Invalid path: a/b");
}

TEST(EditValidationTest, EveryEditObeysItsModeAndNoIdOrStagedNameRepeats) {
    const auto refusal = [](std::vector<EditEntry> edits) {
        return manifestRefusal(EditManifest{1, "M8_4C3C645B", std::move(edits)});
    };
    auto caseOnly = test::newFileEdit("/samples/KICK.wav");
    auto formOnly = test::newFileEdit("/Samples/Cafe\u0301.wav");
    formOnly.sourceRelativePath = "/Samples/Caf\u00e9.wav";
    EXPECT_EQ(refusal({caseOnly}), "Mode invariant violated: saveAsNew requires a different target path");
    EXPECT_EQ(refusal({formOnly}), "Mode invariant violated: saveAsNew requires a different target path");
    auto withSongs = test::newFileEdit();
    withSongs.affectedSongs = {"/Songs/A.m8s"};
    EXPECT_EQ(refusal({withSongs}),
              "Mode invariant violated: saveAsNew invariant: affectedSongs must be empty");
    auto elsewhere = test::overwriteEdit();
    elsewhere.targetRelativePath = "/Samples/other.wav";
    EXPECT_EQ(refusal({elsewhere}),
              "Mode invariant violated: overwrite requires targetRelativePath == sourceRelativePath");
    auto trailing = test::overwriteEdit();
    trailing.targetRelativePath = "/Samples/snare.wav/";
    EXPECT_EQ(refusal({trailing}), "Invalid path: Path has empty component (e.g. //): /Samples/snare.wav/");
    auto badSong = test::overwriteEdit();
    badSong.affectedSongs = {"/Songs/../../etc/passwd"};
    EXPECT_EQ(refusal({badSong}), "Invalid path: Path contains '..': /Songs/../../etc/passwd");
    auto badFolder = test::newFileEdit();
    badFolder.sourceVersionFolder = "..";
    EXPECT_EQ(refusal({badFolder}), "Invalid path: Invalid path component: ..");
    auto badStaged = test::newFileEdit();
    badStaged.stagedFileName = "../manifest.json";
    EXPECT_EQ(refusal({badStaged}), "Invalid path: Invalid path component: ../manifest.json");

    auto first = test::newFileEdit("/Samples/a.wav");
    auto sameId = test::newFileEdit("/Samples/b.wav");
    sameId.id = first.id;
    EXPECT_EQ(refusal({first, sameId}), "Failed to decode manifest: Manifest contains duplicate edit IDs.");
    auto sameStaged = test::newFileEdit("/Samples/b.wav");
    sameStaged.stagedFileName = first.stagedFileName;
    first.appliedAt = sameStaged.appliedAt = first.createdAt;
    EXPECT_EQ(refusal({first, sameStaged}),
              "Failed to decode manifest: Manifest contains duplicate staged file names.");
    sameStaged.stagedFileName = "caf\u00e9.wav";
    first.stagedFileName = "cafe\u0301.wav";
    EXPECT_EQ(refusal({first, sameStaged}),
              "Failed to decode manifest: Manifest contains duplicate staged file names.");
    first.stagedFileName = "CAF\u00c9.wav";
    EXPECT_EQ(refusal({first, sameStaged}), "") << "letter case counts in names";
}

TEST(EditValidationTest, AMarkerMustNameItsEdit) {
    const auto edit = test::newFileEdit();
    const PendingCommitMarker marker{1, edit.id, edit.stagedFileName, "/SAMPLES/kick_trim.wav/"};
    EXPECT_NO_THROW(EditValidation::validateMarker(marker, edit));
    const auto refusal = [&](PendingCommitMarker changed) {
        try {
            EditValidation::validateMarker(changed, edit);
            return std::string();
        } catch (const EditManifestStoreError& error) {
            return error.description();
        }
    };
    const std::string mismatch = "Failed to decode manifest: Pending commit marker does not match its edit.";
    EXPECT_EQ(refusal({2, edit.id, edit.stagedFileName, edit.targetRelativePath}), mismatch);
    EXPECT_EQ(refusal({1, makeUuid(), edit.stagedFileName, edit.targetRelativePath}), mismatch);
    EXPECT_EQ(refusal({1, edit.id, "/" + edit.stagedFileName, edit.targetRelativePath}), mismatch);
    EXPECT_EQ(refusal({1, edit.id, edit.stagedFileName, "/Samples/other.wav"}), mismatch);
}

}  // namespace
}  // namespace tapekeep
