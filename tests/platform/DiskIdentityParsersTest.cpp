#include <gtest/gtest.h>

#include "platform/BlkidOutputParser.h"
#include "platform/DiskIdentityError.h"
#include "platform/LsblkOutputParser.h"

namespace tapekeep {
namespace {

struct LsblkCase {
    const char* name;
    const char* json;
    DiskInfo expected;
};

std::string device(const std::string& fields) { return R"({"blockdevices":[{)" + fields + "}]}"; }

TEST(LsblkOutputParserTest, ReadsUuidAndDecidesInternalFromFlagsOfEitherStyle) {
    const std::vector<LsblkCase> cases{
        {"sata partition, booleans",
         R"({"blockdevices": [{"uuid": "0f6e-11", "rm": false, "hotplug": false, "type": "part", "tran": null}]})",
         {"0f6e-11", true}},
        {"removable, booleans", R"({"blockdevices":[{"uuid":"1234-ABCD","rm":true,"hotplug":false,"type":"part","tran":null}]})",
         {"1234-ABCD", false}},
        {"hot-plugged, booleans", R"({"blockdevices":[{"uuid":"A","rm":false,"hotplug":true,"type":"part","tran":null}]})",
         {"A", false}},
        {"usb disk", R"({"blockdevices":[{"uuid":"B","rm":false,"hotplug":false,"type":"disk","tran":"usb"}]})",
         {"B", false}},
        {"sata disk", R"({"blockdevices":[{"uuid":"C","rm":false,"hotplug":false,"type":"disk","tran":"sata"}]})",
         {"C", true}},
        {"loop device", R"({"blockdevices":[{"uuid":"D","rm":false,"hotplug":false,"type":"loop","tran":null}]})",
         {"D", false}},
        {"old strings, fixed", R"({"blockdevices":[{"uuid":"E","rm":"0","hotplug":"0","type":"part","tran":null}]})",
         {"E", true}},
        {"old strings, removable", R"({"blockdevices":[{"uuid":"F","rm":"1","hotplug":"0","type":"part","tran":null}]})",
         {"F", false}},
        {"old strings, hot-plugged", R"({"blockdevices":[{"uuid":"G","rm":"0","hotplug":"1","type":"part"}]})",
         {"G", false}},
        {"null uuid (no udev)", R"({"blockdevices":[{"uuid":null,"rm":true,"hotplug":true,"type":"loop","tran":null}]})",
         {"", false}},
        {"missing columns", R"({"blockdevices":[{}]})", {"", true}},
        {"disk listed before its partition",
         R"({"blockdevices":[{"uuid":null,"rm":false,"hotplug":false,"type":"disk","tran":"nvme",
             "children":[{"uuid":"P1","rm":true,"hotplug":true,"type":"part","tran":null}]}]})",
         {"", true}},
        {"warning after the document", "{\"blockdevices\":[{\"uuid\":\"H\",\"rm\":true}]}\nlsblk: warning\n",
         {"H", false}},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        EXPECT_EQ(LsblkOutputParser::parse(testCase.json), testCase.expected);
    }
    EXPECT_EQ(LsblkOutputParser::parse(device(R"("uuid":"I","rm":1)")), (DiskInfo{"I", false}));
}

TEST(LsblkOutputParserTest, RefusesTextThatIsNotADeviceListing) {
    for (const char* text : {"", "lsblk: /dev/x: not a block device", "[1, 2]", R"({"other": []})",
                             R"({"blockdevices": []})", R"({"blockdevices": [1]})", R"({"blockdevices": {}})"}) {
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
