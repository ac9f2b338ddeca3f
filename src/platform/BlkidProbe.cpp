#include "platform/BlkidProbe.h"

#include <blkid/blkid.h>

#include <memory>

namespace tapekeep::BlkidProbe {
namespace {

struct ProbeFree {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using Probe = std::unique_ptr<std::remove_pointer_t<blkid_probe>, ProbeFree>;

}  // namespace

std::optional<std::string> fileSystemUuid(const std::string& device) {
    const Probe probe(blkid_new_probe_from_filename(device.c_str()));
    if (!probe) return std::nullopt;
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_UUID);
    // 0: found one file system; 1: none; -2: ambiguous (several signatures), as blkid refuses too.
    const int found = blkid_do_safeprobe(probe.get());
    if (found < 0) return std::nullopt;
    if (found == 1) return std::string();
    const char* uuid = nullptr;
    if (blkid_probe_lookup_value(probe.get(), "UUID", &uuid, nullptr) != 0 || uuid == nullptr)
        return std::string();
    return std::string(uuid);
}

}  // namespace tapekeep::BlkidProbe
