#include <gtest/gtest.h>

#include <QQuickItem>

#include <memory>

#include "GuiTestApplication.h"
#include "QuickScreen.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "ui/M8Theme.h"

namespace tapekeep {
namespace {

TEST(M8SearchFieldTest, TypedTextShowsTheClearControlThatEmptiesTheFieldAndKeepsItsFocus) {
    test::ensureGuiApplication();
    test::TempDir temp;
    SettingsStore store(temp / "settings.json");
    AppSettings settings(store, [] { return std::optional<std::string>("/usr/bin/rsync"); });
    M8Theme theme(settings, [] { return true; });
    test::QuickScreen screen;
    screen.provide("Settings", &settings);
    screen.provide("Theme", &theme);
    QQuickItem* field = screen.loadText(
        "import QtQuick\nimport Tapekeep\nItem { M8SearchField { objectName: \"search\"; prompt: \"Search\" "
        "} }\n");
    ASSERT_NE(field, nullptr) << screen.errors().toStdString();
    QQuickItem* search = screen.find("search");
    QQuickItem* input = screen.find("searchInput");
    QQuickItem* clear = screen.find("clearSearch");
    ASSERT_TRUE(search && input && clear);
    EXPECT_FALSE(clear->isVisible());

    screen.click(input);
    ASSERT_TRUE(input->hasActiveFocus());
    screen.typeText("kick");
    EXPECT_EQ(search->property("text").toString(), "kick");
    ASSERT_TRUE(clear->isVisible());
    EXPECT_EQ(clear->property("title").toString(), "Clear search");

    screen.click(clear);
    EXPECT_EQ(search->property("text").toString(), QString());
    EXPECT_FALSE(clear->isVisible());
    EXPECT_TRUE(input->hasActiveFocus());

    screen.typeText("hat");
    screen.pressSpace(clear);  // from the keyboard: the typing goes on in the field
    EXPECT_EQ(search->property("text").toString(), QString());
    EXPECT_TRUE(input->hasActiveFocus());

    screen.typeText("snare");
    screen.pressKey(input, Qt::Key_Escape);  // Esc clears too
    EXPECT_EQ(search->property("text").toString(), QString());
}

}  // namespace
}  // namespace tapekeep
