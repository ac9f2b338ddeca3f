#include "FatCard.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <thread>

#include "platform/MountTable.h"

namespace tapekeep::test {

std::string shellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

int runShell(const std::string& command, std::string* output) {
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return -1;
    std::array<char, 4096> buffer{};
    std::string text;
    while (std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe))
        text.append(buffer.data(), count);
    int status = ::pclose(pipe);
    if (output != nullptr) *output = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

namespace {

std::string trimmedOutput(const std::string& command) {
    std::string output;
    if (runShell(command, &output) != 0) throw std::runtime_error(command + " failed: " + output);
    while (!output.empty() && (output.back() == '\n' || output.back() == ' ')) output.pop_back();
    return output;
}

bool haveCommand(const std::string& name) {
    return runShell("command -v " + name + " >/dev/null") == 0;
}

bool isMountPoint(const std::filesystem::path& path) {
    const MountTable table = MountTable::readLive();
    const auto& entries = table.entries();
    return std::any_of(entries.begin(), entries.end(),
                       [&](const MountTable::Entry& entry) { return entry.mountPoint == path; });
}

}  // namespace

std::optional<std::string> FatCard::unavailableReason() {
    if (::geteuid() != 0) return "loop devices need root";
    if (::access("/dev/fuse", R_OK | W_OK) != 0) return "no /dev/fuse";
    if (::access("/dev/loop-control", R_OK | W_OK) != 0) return "no /dev/loop-control";
    for (const char* tool : {"mkfs.vfat", "losetup", "fusefat", "fusermount", "blkid"})
        if (!haveCommand(tool)) return std::string(tool) + " is not installed";
    return std::nullopt;
}

FatCard::FatCard(const std::filesystem::path& image, const std::filesystem::path& volumesRoot,
                 const std::string& label, int sizeMiB, const std::string& volumeId)
    : image_(image), mountPath_(volumesRoot / label) {
    trimmedOutput("truncate -s " + std::to_string(sizeMiB) + "M " + shellQuote(image_.string()));
    const std::string idOption = volumeId.empty() ? "" : "-i " + shellQuote(volumeId) + " ";
    trimmedOutput("mkfs.vfat " + idOption + "-n " + shellQuote(label) + " " + shellQuote(image_.string()));
    loopDevice_ = trimmedOutput("losetup -f --show " + shellQuote(image_.string()));
    uuid_ = trimmedOutput("blkid -o value -s UUID " + shellQuote(loopDevice_));
    std::filesystem::create_directories(mountPath_);
    mount();
}

FatCard::~FatCard() {
    try {
        unmount();
    } catch (...) {
    }
    runShell("losetup -d " + shellQuote(loopDevice_));
}

void FatCard::mount() {
    if (mounted_) return;
    std::filesystem::create_directories(mountPath_);
    trimmedOutput("fusefat -o rw+,fsname=" + loopDevice_ + " " + shellQuote(loopDevice_) + " " +
                  shellQuote(mountPath_.string()) + " >/dev/null");
    mounted_ = true;
}

void FatCard::unmount() {
    if (!mounted_) return;
    // fusefat writes back lazily; a busy mount is retried briefly before giving up. A card that was
    // ejected by the code under test is done.
    for (int attempt = 0; attempt < 20; ++attempt) {
        if (!isMountPoint(mountPath_) || runShell("fusermount -u " + shellQuote(mountPath_.string())) == 0) {
            mounted_ = false;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    throw std::runtime_error("could not unmount " + mountPath_.string());
}

}  // namespace tapekeep::test
