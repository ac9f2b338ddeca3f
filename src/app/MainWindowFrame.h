#pragma once

#include <QRect>
#include <QString>

#include <optional>

namespace tapekeep {

// The main window's frame as the settings file keeps it, outside AppSettings, under
// `m8MainWindowFrame`: the text "x y width height", four decimal integers (x and y may be negative,
// width and height are positive) separated by single spaces, in the desktop's logical pixels.
class MainWindowFrame {
public:
    static constexpr const char* settingsKey = "m8MainWindowFrame";
    static constexpr QSize defaultSize{1180, 760};
    static constexpr QSize minimumSize{960, 620};

    [[nodiscard]] static QString text(const QRect& frame);
    // Nothing unless the text is exactly in the format above.
    [[nodiscard]] static std::optional<QRect> parse(const QString& text);
    // The default size centred on the screen's available area, shrunk to fit a smaller screen but
    // never below the minimum size. Nothing when the area has no positive width and height.
    [[nodiscard]] static std::optional<QRect> defaultFrame(const QRect& screenArea);
};

}  // namespace tapekeep
