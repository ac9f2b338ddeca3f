#include "ui/CanberraSoundPlayer.h"

#include <canberra.h>

#include <optional>

#include "core/Log.h"
#include "platform/ThreadName.h"

namespace tapekeep {

namespace {

const Log log("CanberraSoundPlayer");

class CanberraContext {
public:
    CanberraContext() {
        if (ca_context_create(&context_) != CA_SUCCESS) context_ = nullptr;
        if (context_)
            ca_context_change_props(context_, CA_PROP_APPLICATION_NAME, "Tapekeep", CA_PROP_APPLICATION_ID,
                                    "org.tapekeep.Tapekeep", nullptr);
    }
    ~CanberraContext() {
        if (context_) ca_context_destroy(context_);
    }
    CanberraContext(const CanberraContext&) = delete;
    CanberraContext& operator=(const CanberraContext&) = delete;

    void play(const std::string& eventId) {
        const int result = context_ ? ca_context_play(context_, 0, CA_PROP_EVENT_ID, eventId.c_str(), nullptr)
                                    : CA_ERROR_NOTAVAILABLE;
        if (result != CA_SUCCESS) log.info("No sound for " + eventId + ": " + ca_strerror(result));
    }

private:
    ca_context* context_ = nullptr;
};

}  // namespace

CanberraSoundPlayer::CanberraSoundPlayer() : worker_([this](std::stop_token token) { run(token); }) {}

CanberraSoundPlayer::~CanberraSoundPlayer() {
    worker_.request_stop();
    wake_.notify_all();
}

void CanberraSoundPlayer::play(const std::string& eventId) {
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(eventId);
    }
    wake_.notify_all();
}

// The context is made on first use, on this thread, and kept: it holds the connection to the
// sound server.
void CanberraSoundPlayer::run(std::stop_token token) {
    setCurrentThreadName("sound");
    std::optional<CanberraContext> context;
    while (true) {
        std::string eventId;
        {
            std::unique_lock lock(mutex_);
            if (!wake_.wait(lock, token, [&] { return !queue_.empty(); })) return;
            eventId = std::move(queue_.front());
            queue_.pop_front();
        }
        if (!context) context.emplace();
        context->play(eventId);
    }
}

}  // namespace tapekeep
