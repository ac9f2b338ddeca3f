#include "ui/M8Theme.h"

#include <gtest/gtest.h>

#include <memory>

#include "GuiTestApplication.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "ui/M8Accent.h"

namespace tapekeep {
namespace {

using test::TempDir;

class M8ThemeTest : public ::testing::Test {
protected:
    bool applicationReady = (test::ensureGuiApplication(), true);
    TempDir temp;
    SettingsStore store{temp / "settings.json"};
    AppSettings settings{store, [] { return std::optional<std::string>("/usr/bin/rsync"); }};
    bool systemIsDark = true;
    M8Theme theme{settings, [this] { return systemIsDark; }};

    std::shared_ptr<int> countChanges() {
        auto count = std::make_shared<int>(0);
        QObject::connect(&theme, &M8Theme::changed, [count] { ++*count; });
        return count;
    }
};

TEST(M8ThemeTypeLadder, EverySizeIsTheBaseTimesTheScaleToTheNearestHalfPointHalvesAwayFromZero) {
    EXPECT_EQ(M8Theme::scaledSize(11, M8Theme::scaleFactorOf("sm")), 10.0);
    EXPECT_EQ(M8Theme::scaledSize(15, M8Theme::scaleFactorOf("xl")), 19.0);
    // Counted in thousandths of a point, where every product of the ladder is exact.
    const std::pair<const char*, int> scales[] = {
        {"xs", 850}, {"sm", 925}, {"md", 1000}, {"lg", 1100}, {"xl", 1250}};
    for (int base : {9, 10, 11, 12, 13, 15, 18, 26, 48}) {
        for (const auto& [scale, thousandths] : scales) {
            const int halfPoints = (base * thousandths * 2 + 500) / 1000;  // a half goes up, away from zero
            EXPECT_EQ(M8Theme::scaledSize(base, M8Theme::scaleFactorOf(scale)), halfPoints / 2.0)
                << base << " in " << scale;
        }
    }
    EXPECT_EQ(M8Theme::scaleFactorOf("huge"), 1.0);
}

TEST_F(M8ThemeTest, FontSizesFollowTheScaleSetting) {
    EXPECT_EQ(theme.fontSize(11), 11.0);
    settings.setM8TypeScale("sm");
    EXPECT_EQ(theme.typeScale(), "sm");
    EXPECT_EQ(theme.fontSize(11), 10.0);
}

TEST_F(M8ThemeTest, AnUnknownAccentNameIsPink) {
    store.setValue("m8Accent", "teal");  // written by hand: the setter refuses it
    settings.setM8Accent("cyan");
    EXPECT_EQ(theme.accentName(), "cyan");
    EXPECT_EQ(theme.accent(), QColor(0x3AE6FF));
    store.setValue("m8Accent", "teal");
    theme.systemAppearanceChanged();  // any reason to read the settings again
    EXPECT_EQ(theme.accentName(), "pink");
    EXPECT_EQ(theme.accent(), QColor(0xFF3A82));
    EXPECT_EQ(M8Theme::accents().size(), 5);
    EXPECT_EQ(M8Accent::named("teal").name, "pink");
    EXPECT_EQ(M8Accent::named("").colour, QColor(0xFF3A82));
}

TEST_F(M8ThemeTest, AppearanceSwitchesThePaletteWithOneSignalAndNoneWhenNothingChanged) {
    auto changes = countChanges();
    ASSERT_TRUE(theme.isDark());  // "system" on a dark desktop
    EXPECT_EQ(theme.palette(), M8Palette::dark());

    settings.setAppearance("light");
    EXPECT_FALSE(theme.isDark());
    EXPECT_EQ(theme.palette(), M8Palette::light());
    EXPECT_EQ(theme.palette().bg0, QColor(0xFAF8F4));
    EXPECT_EQ(*changes, 1);

    settings.setAppearance("dark");
    EXPECT_EQ(theme.palette(), M8Palette::dark());
    EXPECT_EQ(theme.palette().bg0, QColor(0x0E0F14));
    EXPECT_EQ(*changes, 2);

    systemIsDark = false;
    theme.systemAppearanceChanged();  // "dark" does not follow the desktop
    settings.setAppearance("dark");
    EXPECT_EQ(*changes, 2);

    settings.setAppearance("system");  // now the light desktop
    EXPECT_EQ(theme.palette(), M8Palette::light());
    EXPECT_EQ(*changes, 3);
    systemIsDark = true;
    theme.systemAppearanceChanged();
    EXPECT_EQ(theme.palette(), M8Palette::dark());
    EXPECT_EQ(*changes, 4);
    theme.systemAppearanceChanged();
    EXPECT_EQ(*changes, 4);
}

}  // namespace
}  // namespace tapekeep
