#include "cards/DiskutilInfoParser.h"

#include <gtest/gtest.h>

namespace tapekeep {
namespace {

constexpr const char* externalCardOutput =
    "   Device Identifier:         disk4s1\n"
    "   Device Node:               /dev/disk4s1\n"
    "   Whole:                     No\n"
    "   Part of Whole:             disk4\n"
    "\n"
    "   Volume Name:               M8\n"
    "   Mounted:                   Yes\n"
    "   Mount Point:               /Volumes/M8\n"
    "\n"
    "   Partition Type:            DOS_FAT_32\n"
    "   File System Personality:   MS-DOS FAT32\n"
    "   Disk / Partition UUID:     5B1F2E30-0000-0000-0000-000000000000\n"
    "   Volume UUID:               0E239BC6-F960-3107-89CF-1C97F78BB46B\n"
    "\n"
    "   Device Location:           External\n"
    "   Removable Media:           Removable\n"
    "   Media Removal:             Software-Activated\n";

TEST(DiskutilInfoParserTest, ReadsTheUuidAndLocationLines) {
    struct Case {
        const char* name;
        const char* output;
        DiskInfo expected;
    };
    const std::vector<Case> cases{
        {"real external card", externalCardOutput, {"0E239BC6-F960-3107-89CF-1C97F78BB46B", false}},
        {"no uuid line", "   Volume Name: X\n   Device Location: External\n", {"", false}},
        {"empty value, later line still read",
         "   Volume UUID:   \n   Volume UUID: LATER\n",
         {"LATER", false}},
        {"value keeps its colon", "Volume UUID: A:B", {"A:B", false}},
        {"first value wins", "Volume UUID: FIRST\nVolume UUID: SECOND\n", {"FIRST", false}},
        {"case kept, blanks trimmed", "\t  Volume UUID:\t abc-DEF \t\n", {"abc-DEF", false}},
        {"other uuid labels ignored", "Disk / Partition UUID: P\nAPFS Volume UUID: Q\n", {"", false}},
        {"internal in any case", "Device Location: bus INTERNAL port\n", {"", true}},
        {"label is case-sensitive", "device location: internal\n", {"", false}},
        {"other line saying internal", "   Removable Media:           Internal\n", {"", false}},
        {"internal is never cleared", "Device Location: Internal\nDevice Location: External\n", {"", true}},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        EXPECT_EQ(DiskutilInfoParser::parse(testCase.output), testCase.expected);
    }
}

}  // namespace
}  // namespace tapekeep
