#include "app/LaunchTasks.h"

#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Log.h"
#include "platform/ThreadName.h"

namespace tapekeep {

namespace {

const Log log("LaunchTasks");

}  // namespace

std::vector<LaunchTasks::Task> LaunchTasks::all() {
    return {};
}

LaunchTasks::~LaunchTasks() {
    thread_.request_stop();
}

void LaunchTasks::start() {
    if (thread_.joinable() || tasks_.empty()) return;
    thread_ = std::jthread([this](std::stop_token token) {
        setCurrentThreadName("launch tasks");
        runAll(tasks_, token);
    });
}

void LaunchTasks::runAll(const std::vector<Task>& tasks, const std::stop_token& token) {
    for (const Task& task : tasks) {
        if (token.stop_requested()) return;
        try {
            task.run(token);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            log.console("Launch task \"" + task.name + "\" failed: " + describe(error));
        }
    }
}

}  // namespace tapekeep
