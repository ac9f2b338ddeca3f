#include "app/MainWindowFrame.h"

#include <gtest/gtest.h>

namespace tapekeep {

namespace {

TEST(MainWindowFrameTest, AFrameReadsBackFromItsText) {
    for (const QRect& frame : {QRect(120, 80, 1180, 760), QRect(-1920, -40, 960, 620), QRect(0, 0, 1, 1)}) {
        const QString text = MainWindowFrame::text(frame);
        EXPECT_EQ(MainWindowFrame::parse(text), frame) << text.toStdString();
    }
    EXPECT_EQ(MainWindowFrame::text(QRect(-5, 7, 1000, 700)), "-5 7 1000 700");
}

TEST(MainWindowFrameTest, AnythingButTheExactFormatIsUnreadable) {
    for (const char* text : {"", "120 80 1180", "120 80 1180 760 1", "120  80 1180 760", " 120 80 1180 760",
                             "120 80 1180 760\n", "120,80,1180,760", "{{120, 80}, {1180, 760}}",
                             "120 80 0 760", "120 80 1180 -760", "120 80 +1180 760", "1e3 80 1180 760",
                             "120 80 1180 7600000", "120 80 1180 760x", "١٢٠ 80 1180 760"})
        EXPECT_EQ(MainWindowFrame::parse(QString::fromUtf8(text)), std::nullopt) << text;
}

TEST(MainWindowFrameTest, TheDefaultFrameIsCentredAndFitsTheScreen) {
    EXPECT_EQ(MainWindowFrame::defaultFrame(QRect(0, 0, 1920, 1080)), QRect(370, 160, 1180, 760));
    EXPECT_EQ(MainWindowFrame::defaultFrame(QRect(1920, 24, 1920, 1056)), QRect(2290, 172, 1180, 760));
    // A small screen shrinks it, but never below the window's minimum size.
    EXPECT_EQ(MainWindowFrame::defaultFrame(QRect(0, 0, 1024, 700))->size(), QSize(1024, 700));
    EXPECT_EQ(MainWindowFrame::defaultFrame(QRect(0, 0, 800, 600))->size(), QSize(960, 620));
    EXPECT_EQ(MainWindowFrame::defaultFrame(QRect(0, 0, 0, 1080)), std::nullopt);
    EXPECT_EQ(MainWindowFrame::defaultFrame(QRect()), std::nullopt);
}

}  // namespace
}  // namespace tapekeep
