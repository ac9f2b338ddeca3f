#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>

#include <memory>

#include "GuiTestApplication.h"
#include "QmlControllers.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "ui/M8Theme.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::TempDir;
using test::writeFile;

QQuickItem* findItem(QQuickItem* root, const QString& name) {
    if (root->objectName() == name) return root;
    for (QQuickItem* child : root->childItems())
        if (QQuickItem* found = findItem(child, name)) return found;
    return nullptr;
}

// The SETTINGS screen in a window of its own, over settings in a temporary file.
class SettingsTabTest : public ::testing::Test {
protected:
    bool applicationReady = (test::ensureGuiApplication(), true);
    TempDir temp;
    fs::path file = temp / "config/tapekeep/settings.json";
    std::unique_ptr<SettingsStore> store;
    std::unique_ptr<AppSettings> settings;
    std::unique_ptr<M8Theme> theme;
    QQuickWindow window;
    std::unique_ptr<QQmlEngine> engine;
    std::unique_ptr<QQuickItem> tab;

    void TearDown() override {
        tab.reset();
        engine.reset();
    }

    void load() {
        store = std::make_unique<SettingsStore>(file);
        settings = std::make_unique<AppSettings>(*store,
                                                 [] { return std::optional<std::string>("/usr/bin/rsync"); });
        theme = std::make_unique<M8Theme>(*settings, [] { return true; });
        test::provideControllers(settings.get(), theme.get());
        engine = std::make_unique<QQmlEngine>();
        engine->addImportPath(QStringLiteral("qrc:/qt/qml"));
        QQmlComponent component(engine.get(), QUrl(QStringLiteral("qrc:/qt/qml/Tapekeep/SettingsTab.qml")));
        tab.reset(qobject_cast<QQuickItem*>(component.create()));
        ASSERT_NE(tab, nullptr) << component.errorString().toStdString();
        window.resize(960, 720);
        tab->setParentItem(window.contentItem());
        tab->setSize(QSizeF(960, 720));
        window.show();
        window.requestActivate();
        ASSERT_TRUE(test::processEventsUntil([this] { return window.isExposed(); }));
    }

    QQuickItem* item(const char* name) {
        QQuickItem* found = findItem(tab.get(), QString::fromLatin1(name));
        EXPECT_NE(found, nullptr) << name;
        return found;
    }

    void click(QQuickItem* target) {
        ASSERT_NE(target, nullptr);
        const QPointF scene = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        const QPointF global = window.mapToGlobal(scene);
        QMouseEvent press(QEvent::MouseButtonPress, scene, scene, global, Qt::LeftButton, Qt::LeftButton,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(&window, &press);
        QMouseEvent release(QEvent::MouseButtonRelease, scene, scene, global, Qt::LeftButton, Qt::NoButton,
                            Qt::NoModifier);
        QCoreApplication::sendEvent(&window, &release);
        QCoreApplication::processEvents();
    }

    void pressKey(QQuickItem* target, Qt::Key key, const QString& text = {}) {
        ASSERT_NE(target, nullptr);
        target->forceActiveFocus(Qt::TabFocusReason);
        if (!target->isEnabled()) {
            EXPECT_FALSE(target->hasActiveFocus());
        } else {
            ASSERT_TRUE(test::processEventsUntil([target] { return target->hasActiveFocus(); }));
        }
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, text);
        QCoreApplication::sendEvent(&window, &press);
        QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier, text);
        QCoreApplication::sendEvent(&window, &release);
        QCoreApplication::processEvents();
    }
    void pressSpace(QQuickItem* target) { pressKey(target, Qt::Key_Space, QStringLiteral(" ")); }

    // The colour drawn at the middle of an item, read back from the window's pixels.
    QColor drawnColour(QQuickItem* target) {
        if (target == nullptr) return {};
        const QImage image = window.grabWindow();
        const QPointF middle = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        return image.pixelColor((middle * window.devicePixelRatio()).toPoint());
    }
};

TEST_F(SettingsTabTest, TheAccentChosenWithASwatchRepaintsTheScreenAtOnce) {
    load();
    click(item("nav_appearance"));
    ASSERT_TRUE(item("section_appearance")->isVisible());
    QQuickItem* sample = item("sampleAccent");
    EXPECT_EQ(drawnColour(sample), QColor(0xFF3A82));  // pink

    click(item("swatch_lime"));
    EXPECT_EQ(settings->m8Accent(), "lime");
    EXPECT_EQ(theme->accent(), QColor(0xB8FF3A));
    EXPECT_EQ(drawnColour(sample), QColor(0xB8FF3A));
    EXPECT_EQ(drawnColour(findItem(item("nav_appearance"), "navMarker")), QColor(0xB8FF3A));

    pressSpace(item("swatch_amber"));  // the swatches are reached from the keyboard too
    EXPECT_EQ(settings->m8Accent(), "amber");
    EXPECT_EQ(drawnColour(sample), QColor(0xFFB23A));
}

TEST_F(SettingsTabTest, TheControlsWriteTheSettingsTheyShow) {
    load();
    click(item("nav_appearance"));
    click(item("segment_light"));
    EXPECT_EQ(settings->appearance(), "light");
    EXPECT_EQ(drawnColour(item("appearanceSample")), QColor(0xEDE9DE));  // the light LCD surface

    click(item("nav_storage"));
    click(findItem(item("keepCount"), "increase"));
    EXPECT_EQ(settings->keepCount(), 6);
    click(item("rotateBackups"));
    EXPECT_FALSE(settings->rotateBackups());
    EXPECT_FALSE(item("rotateBackups")->property("isOn").toBool());

    click(item("nav_system"));
    pressSpace(item("askToEjectOnQuit"));
    EXPECT_FALSE(settings->askToEjectOnQuit());

    click(item("nav_notifications"));
    pressKey(item("completionSoundName"), Qt::Key_Down);  // the next sound, without opening the list
    EXPECT_EQ(settings->completionSoundName(), "Basso");
    click(item("nav_backup"));
    pressKey(item("segment_flag"), Qt::Key_Right);  // disabled while verification is off
    EXPECT_EQ(settings->verifyMismatchActionRaw(), "flag");
    click(item("verifyAfterBackup"));
    pressKey(item("segment_flag"), Qt::Key_Right);
    EXPECT_EQ(settings->verifyMismatchActionRaw(), "abort");
}

TEST_F(SettingsTabTest, ADamagedSettingsFileIsShownWithItsPathAndAChangeDoesNotOverwriteIt) {
    const std::string damaged = "{\"keepCount\": 3,";
    writeFile(file, damaged);
    load();
    QQuickItem* problem = item("settingsStoreProblem");
    ASSERT_TRUE(problem->isVisible());
    const QString text = item("storeProblemText")->property("text").toString();
    EXPECT_TRUE(text.contains("Settings file is damaged: " + QString::fromStdString(file.string())))
        << text.toStdString();

    click(item("rotateBackups"));
    EXPECT_EQ(readFile(file), damaged);
    EXPECT_TRUE(item("rotateBackups")->property("isOn").toBool());  // the switch shows what is kept

    writeFile(file, "{}");  // mended outside; the screen looks again when it is shown
    tab->setVisible(false);
    tab->setVisible(true);
    EXPECT_FALSE(problem->isVisible());
}

}  // namespace
}  // namespace tapekeep
