#include "FatCard.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <thread>

#include "TempDir.h"
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
    thaw();
    if (!mounted_) return;
    // fusefat writes back lazily: a busy mount is retried until it is free, which may take a while on
    // a busy machine; the limit only keeps a broken mount from hanging the tests. A card that was
    // ejected by the code under test is done.
    for (int attempt = 0; attempt < 600; ++attempt) {
        if (!isMountPoint(mountPath_) || runShell("fusermount -u " + shellQuote(mountPath_.string())) == 0) {
            mounted_ = false;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    throw std::runtime_error("could not unmount " + mountPath_.string());
}

}  // namespace tapekeep::test

namespace tapekeep::test {

// The fusefat process that serves this card: the one whose last two arguments are the loop device
// and the mount point.
pid_t FatCard::daemonProcess() const {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::string commandLine;
        try {
            commandLine = readFile(entry.path() / "cmdline");
        } catch (const std::exception&) {
            continue;  // ended meanwhile
        }
        std::vector<std::string> arguments;
        for (std::size_t start = 0; start < commandLine.size();) {
            const std::size_t end = std::min(commandLine.find('\0', start), commandLine.size());
            arguments.push_back(commandLine.substr(start, end - start));
            start = end + 1;
        }
        if (arguments.size() >= 3 && std::filesystem::path(arguments.front()).filename() == "fusefat" &&
            arguments[arguments.size() - 2] == loopDevice_ && arguments.back() == mountPath_.string())
            return static_cast<pid_t>(std::stol(name));
    }
    throw std::runtime_error("no fusefat process serves " + mountPath_.string());
}

void FatCard::freeze() {
    if (frozenDaemon_ > 0) return;
    const pid_t daemon = daemonProcess();
    if (::kill(daemon, SIGSTOP) != 0) throw std::runtime_error("cannot stop fusefat");
    frozenDaemon_ = daemon;
}

void FatCard::thaw() {
    if (frozenDaemon_ <= 0) return;
    ::kill(frozenDaemon_, SIGCONT);
    frozenDaemon_ = -1;
}

}  // namespace tapekeep::test
