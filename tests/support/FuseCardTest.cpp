#include "FuseCardTest.h"

#include <csignal>

#include "FileContent.h"
#include "LiveProcesses.h"

#include <nlohmann/json.hpp>

namespace tapekeep::test {
namespace fs = std::filesystem;

void FuseCardTest::SetUp() {
    prepareVolumes();
    if (IsSkipped()) return;
    insertCard();
}

void FuseCardTest::prepareVolumes() {
    if (auto reason = FatCard::unavailableReason()) GTEST_SKIP() << "no FUSE card here: " << *reason;
    fs::create_directories(volumes_);
}

void FuseCardTest::killOutright(CliProcess& process) const {
    process.signal(SIGKILL);
    EXPECT_EQ(process.wait(), 128 + SIGKILL);
    EXPECT_TRUE(waitUntil([&] { return liveProcessesMentioning("rsync", temp_.path().string()).empty(); }))
        << "rsync outlived the killed run";
}

void FuseCardTest::insertCard() {
    card_ = std::make_unique<FatCard>(temp_ / "card.img", volumes_, "M8CARD");
}

std::vector<std::string> FuseCardTest::cliArguments(std::vector<std::string> arguments) const {
    return cliArguments(std::move(arguments), base_);
}

std::vector<std::string> FuseCardTest::cliArguments(std::vector<std::string> arguments,
                                                    const fs::path& base) const {
    arguments.insert(arguments.begin(), {"--volumes-root", volumes_.string(), "--base", base.string()});
    return arguments;
}

CliResult FuseCardTest::cli(const std::vector<std::string>& arguments,
                            const std::map<std::string, std::string>& extraEnvironment) const {
    return runCli(home(), cliArguments(arguments), extraEnvironment);
}

std::unique_ptr<CliProcess> FuseCardTest::startCli(
    const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& extraEnvironment) const {
    return std::make_unique<CliProcess>(home(), cliArguments(arguments), extraEnvironment);
}

std::unique_ptr<CliProcess> FuseCardTest::startHeldAt(const std::string& step, const fs::path& marker,
                                                      const std::vector<std::string>& arguments) const {
    auto process = startCli(
        arguments, {{"TAPEKEEP_TEST_PAUSE_AT", step}, {"TAPEKEEP_TEST_PAUSE_MARKER", marker.string()}});
    waitUntil([&] { return fs::exists(marker) || process->hasExited(); });
    return process;
}

fs::path FuseCardTest::backupOk(const std::vector<std::string>& extra) const {
    std::vector<std::string> arguments = {"--json", "backup", "M8CARD"};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    const auto result = cli(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    return versionOf(result);
}

fs::path FuseCardTest::versionOf(const CliResult& result) {
    if (result.status != 0) return {};
    return nlohmann::json::parse(result.out).at("version").get<std::string>();
}

std::vector<fs::path> FuseCardTest::storeEntries(const std::string& prefix) const {
    std::vector<fs::path> found;
    if (!fs::exists(base_)) return found;
    for (const auto& set : fs::directory_iterator(base_)) {
        if (!set.is_directory()) continue;
        for (const auto& entry : fs::directory_iterator(set.path()))
            if (entry.path().filename().string().starts_with(prefix)) found.push_back(entry.path());
    }
    return found;
}

void FuseCardTest::expectRefusedWhileABackupHoldsTheCard(const std::function<CliResult()>& attempt,
                                                         const std::string& words) {
    const auto before = treeOf(card_->mountPath());
    const std::filesystem::path marker = temp_ / "held";
    const auto backup = startHeldAt("transfer-pass", marker, {"--json", "backup", "M8CARD"});
    ASSERT_TRUE(std::filesystem::exists(marker)) << backup->err();

    const auto refused = attempt();
    EXPECT_EQ(refused.status, 1) << refused.err;
    EXPECT_EQ(refused.lastErrorLine, words);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(treeOf(card_->mountPath()), before);

    std::filesystem::remove(marker);
    EXPECT_EQ(backup->wait(), 0) << backup->err();
}

}  // namespace tapekeep::test
