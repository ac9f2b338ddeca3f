#include "ui/DesktopFeedback.h"

#include <gtest/gtest.h>

#include <vector>

#include "ui/SoundThemeEvent.h"

namespace tapekeep {

namespace {

TEST(DesktopFeedbackTest, SoundNamesBecomeSoundThemeEventsOrSilence) {
    for (const char* chime :
         {"Glass", "Hero", "Ping", "Pop", "Purr", "Tink", "Blow", "Bottle", "Frog", "Morse", "Submarine"})
        EXPECT_EQ(soundThemeEvent(chime), "complete") << chime;
    for (const char* dull : {"Basso", "Funk", "Sosumi"})
        EXPECT_EQ(soundThemeEvent(dull), "dialog-error") << dull;
    for (const char* other : {"", "None", "glass", "Glass ", "complete", "Klaxon"})
        EXPECT_EQ(soundThemeEvent(other), std::nullopt) << other;
}

TEST(DesktopFeedbackTest, NotificationsPassThroughAndOnlyKnownSoundsPlay) {
    std::vector<std::string> notified, played;
    DesktopFeedback feedback(
        {[&](const std::string& title, const std::string& body) { notified.push_back(title + " / " + body); },
         [&](const std::string& eventId) { played.push_back(eventId); }});
    feedback.notify("Backup Complete", "M8: Backup successful (3s).");
    feedback.playSound("Glass");
    feedback.playSound("Basso");
    feedback.playSound("Klaxon");
    EXPECT_EQ(notified, std::vector<std::string>{"Backup Complete / M8: Backup successful (3s)."});
    EXPECT_EQ(played, (std::vector<std::string>{"complete", "dialog-error"}));

    DesktopFeedback silent({});  // no outlets: nothing happens, nothing breaks
    silent.notify("Backup Complete", "M8");
    silent.playSound("Glass");
}

}  // namespace
}  // namespace tapekeep
