#pragma once

#include <filesystem>
#include <functional>
#include <stop_token>
#include <vector>

#include "core/DiskInfo.h"

namespace tapekeep::DemoCard {

// A made-up M8 card in a folder, so that a new user without a device can try every feature: songs
// and instruments in the device's file format, with sampler slots that reference real WAV files.
// The card scanner sees it through the two providers below instead of the mount table.
// Stateless; any thread.

inline constexpr const char* volumeName = "M8DEMO";
inline constexpr const char* uuid = "7A3E9C1D-4B2F-4E6A-9D0C-DE3000C0FFEE";

[[nodiscard]] std::filesystem::path demoRoot();  // dataHome()/tapekeep/demo
[[nodiscard]] std::filesystem::path baseFolder(const std::filesystem::path& demoRoot);  // demoRoot/backups
[[nodiscard]] std::filesystem::path cardFolder(const std::filesystem::path& demoRoot);  // demoRoot/M8DEMO

// Creates the card folder with its content once. An existing card folder is never touched, so the
// user's changes to it stay. The content is built in a hidden folder beside it and renamed into
// place, so a creation cut short leaves no half card; its leftovers are removed at the next call.
// Concurrent callers (the application and the CLI) are serialised by a lock file in demoRoot.
// Throws PosixError.
void ensureCreated(const std::filesystem::path& demoRoot);

// Lists exactly the demo card folder (whether or not it exists yet).
[[nodiscard]] std::function<std::vector<std::filesystem::path>()> volumesProvider(
    const std::filesystem::path& demoRoot);

// Reports the fixed UUID on an external disk for a folder named like the demo card, and no UUID
// for any other path.
[[nodiscard]] std::function<DiskInfo(const std::filesystem::path&, std::stop_token)> diskInfoProvider();

}  // namespace tapekeep::DemoCard
