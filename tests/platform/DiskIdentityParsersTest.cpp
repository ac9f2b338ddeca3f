#include <gtest/gtest.h>

#include "platform/BlkidOutputParser.h"
#include "platform/DiskIdentityError.h"
#include "platform/LsblkOutputParser.h"

namespace tapekeep {
namespace {

// One device of lsblk's JSON listing with the given columns.
std::string device(const std::string& fields) {
    return R"({"blockdevices": [{)" + fields + "}]}";
}

TEST(LsblkOutputParserTest, ReadsUuidAndDecidesInternalFromFlagsOfEitherStyle) {
    const std::vector<std::pair<std::string, DiskInfo>> cases{
        {device(R"("uuid": "0f6e-11", "rm": false, "hotplug": false, "type": "part", "tran": null)"),
         {"0f6e-11", true}},
        {device(R"("uuid":"1234-ABCD","rm":true,"hotplug":false,"type":"part","tran":null)"),
         {"1234-ABCD", false}},
        {device(R"("uuid":"B","rm":false,"hotplug":false,"type":"disk","tran":"usb")"), {"B", false}},
        {device(R"("uuid":"C","rm":false,"hotplug":false,"type":"disk","tran":"sata")"), {"C", true}},
        {device(R"("uuid":"D","rm":false,"hotplug":false,"type":"loop","tran":null)"), {"D", false}},
        {device(R"("uuid":"E","rm":"0","hotplug":"0","type":"part","tran":null)"), {"E", true}},
        {device(R"("uuid":"G","rm":"0","hotplug":"1","type":"part")"), {"G", false}},
        {device(R"("uuid":"I","rm":1)"), {"I", false}},
        {device(R"("uuid":null,"rm":true,"hotplug":true,"type":"loop","tran":null)"),
         {"", false}},  // no udev
        {device(""), {"", true}},
        // The disk comes before its partitions; only the first device counts.
        {device(R"("uuid":null,"rm":false,"hotplug":false,"type":"disk","tran":"nvme",
             "children":[{"uuid":"P1","rm":true,"hotplug":true,"type":"part","tran":null}])"),
         {"", true}},
        {device(R"("uuid":"H","rm":true)") + "\nlsblk: warning\n", {"H", false}},
    };
    for (const auto& [json, expected] : cases) EXPECT_EQ(LsblkOutputParser::parse(json), expected) << json;
}

TEST(LsblkOutputParserTest, RefusesTextThatIsNotADeviceListing) {
    for (const char* text :
         {"", "lsblk: /dev/x: not a block device", "[1, 2]", R"({"other": []})", R"({"blockdevices": []})",
          R"({"blockdevices": [1]})", R"({"blockdevices": {}})"}) {
        SCOPED_TRACE(text);
        EXPECT_THROW(LsblkOutputParser::parse(text), DiskIdentityError);
    }
}

TEST(BlkidOutputParserTest, TakesTheValueOfTheUuidKeyOnly) {
    const std::vector<std::pair<const char*, const char*>> cases{
        {"DEVNAME=/dev/loop3\nUUID=4A2B-9C1D\nBLOCK_SIZE=512\nTYPE=vfat\n", "4A2B-9C1D"},
        {"DEVNAME=/dev/sda2\nUUID_SUB=aaaa\nPARTUUID=bbbb\nUUID=c0ffee00-1111\n", "c0ffee00-1111"},
        {"DEVNAME=/dev/sda3\nPARTUUID=bbbb\nTYPE=swap\n", ""},
        {"UUID=with\\ space\r\n", "with space"},
        {"UUID=\nUUID=second\n", ""},
        {"", ""},
    };
    for (const auto& [output, expected] : cases) {
        SCOPED_TRACE(output);
        EXPECT_EQ(BlkidOutputParser::uuid(output), expected);
    }
}

}  // namespace
}  // namespace tapekeep
