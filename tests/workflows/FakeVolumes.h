#pragma once

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TempDir.h"
#include "cards/VolumeScanner.h"
#include "core/SDCard.h"

namespace tapekeep::test {

// Folders that the scanners made here report as external volumes, each with its UUID: cards,
// or other disks. A folder holding Songs and Instruments counts as a card.
class FakeVolumes {
public:
    // A card folder with a song, an instrument and a sample.
    SDCard addCard(const std::filesystem::path& root, const std::string& uuid) {
        writeFile(root / "Songs/intro.m8s", "song one");
        writeFile(root / "Instruments/bass.m8i", "bass");
        writeFile(root / "Samples/kick.wav", std::string(4096, 'k'));
        add(root, uuid);
        return SDCard{root, root.filename().string(), uuid};
    }
    void add(const std::filesystem::path& root, const std::string& uuid) {
        std::lock_guard lock(mutex_);
        uuids_[root] = uuid;
        volumes_.push_back(root);
    }
    // The volume is no longer mounted; its folder stays.
    void remove(const std::filesystem::path& root) {
        std::lock_guard lock(mutex_);
        std::erase(volumes_, root);
    }
    // From the next probe on, the probes of this many more look-ups answer and then the volumes
    // report nothing, as if every card had been pulled.
    void answerOnly(int probes) { answersLeft_ = probes; }

    std::function<std::unique_ptr<VolumeScanner>()> factory() {
        return [this] { return makeScanner(); };
    }

    std::unique_ptr<VolumeScanner> makeScanner() {
        VolumeScanner::Configuration configuration;
        configuration.volumesProvider = [this] {
            std::lock_guard lock(mutex_);
            return volumes_;
        };
        configuration.diskInfoProvider = [this](const std::filesystem::path& volume, std::stop_token) {
            if (answersLeft_.fetch_sub(1) <= 0) return DiskInfo{"", false};
            std::lock_guard lock(mutex_);
            return DiskInfo{uuids_.at(volume), false};
        };
        return std::make_unique<VolumeScanner>(std::move(configuration));
    }

private:
    std::mutex mutex_;
    std::vector<std::filesystem::path> volumes_;          // guarded by mutex_
    std::map<std::filesystem::path, std::string> uuids_;  // guarded by mutex_
    std::atomic<int> answersLeft_{1 << 30};
};

}  // namespace tapekeep::test
