#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

namespace tapekeep::test {

// A real FAT card: an image made with mkfs.vfat, attached to a loop device and mounted through
// FUSE (fusefat) under a volume root, as an M8's card appears on Linux. Case-insensitive, with
// 2-second timestamps. Unmounted and detached on destruction.
class FatCard {
public:
    // Why such a card cannot be made on this machine, or nothing when it can.
    static std::optional<std::string> unavailableReason();

    // volumeId: the FAT serial as 8 hex digits ("4C3C645B", read back as UUID "4C3C-645B");
    // empty lets mkfs.vfat choose one.
    FatCard(const std::filesystem::path& image, const std::filesystem::path& volumesRoot,
            const std::string& label, int sizeMiB = 64, const std::string& volumeId = {});
    ~FatCard();
    FatCard(const FatCard&) = delete;
    FatCard& operator=(const FatCard&) = delete;

    [[nodiscard]] const std::filesystem::path& mountPath() const { return mountPath_; }
    [[nodiscard]] const std::string& loopDevice() const { return loopDevice_; }
    [[nodiscard]] const std::string& uuid() const { return uuid_; }

    void mount();
    // Thaws the card first, so that its daemon can answer the unmount.
    void unmount();

    // Makes every access to the mounted card block, as a FUSE mount whose daemon stopped answering
    // does: the fusefat process is stopped with SIGSTOP. thaw() lets it go on (SIGCONT).
    void freeze();
    void thaw();

private:
    [[nodiscard]] pid_t daemonProcess() const;

    std::filesystem::path image_;
    std::filesystem::path mountPath_;
    std::string loopDevice_;
    std::string uuid_;
    bool mounted_ = false;
    pid_t frozenDaemon_ = -1;
};

// Runs a shell command, returning its exit status; its output goes to the returned text.
int runShell(const std::string& command, std::string* output = nullptr);
std::string shellQuote(const std::string& text);

}  // namespace tapekeep::test
