#pragma once

#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace tapekeep {

// The clean-ups that run once the main window has first appeared: one background task that runs
// them one after the other. Nothing waits for them, and a failure is only logged. Started and
// destroyed on one thread.
class LaunchTasks {
public:
    struct Task {
        std::string name;
        std::function<void(std::stop_token token)> run;
    };

    // Every launch task of the application, in the order they run: the one place to add one.
    // baseFolder is read when the tasks run: the backup folder, or an empty path when none is set.
    [[nodiscard]] static std::vector<Task> all(std::function<std::filesystem::path()> baseFolder);

    // Staged edit files that no edit names any more (left by a crash between two steps) are
    // removed from every backup set's edit storage. Failures are printed and stop nothing.
    static void cleanUpStagedEdits(const std::filesystem::path& baseFolder, std::stop_token token);

    explicit LaunchTasks(std::vector<Task> tasks) : tasks_(std::move(tasks)) {}
    ~LaunchTasks();  // asks the task to stop after the step that runs, and waits for it
    LaunchTasks(const LaunchTasks&) = delete;
    LaunchTasks& operator=(const LaunchTasks&) = delete;

    // Starts the background task; later calls do nothing.
    void start();

private:
    static void runAll(const std::vector<Task>& tasks, const std::stop_token& token);

    std::vector<Task> tasks_;
    std::jthread thread_;
};

}  // namespace tapekeep
