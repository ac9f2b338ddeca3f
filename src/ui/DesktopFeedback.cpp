#include "ui/DesktopFeedback.h"

#include "ui/SoundThemeEvent.h"

namespace tapekeep {

void DesktopFeedback::notify(const std::string& title, const std::string& body) {
    if (outlets_.notify) outlets_.notify(title, body);
}

void DesktopFeedback::playSound(const std::string& name) {
    const auto eventId = soundThemeEvent(name);
    if (eventId && outlets_.playEvent) outlets_.playEvent(*eventId);
}

}  // namespace tapekeep
