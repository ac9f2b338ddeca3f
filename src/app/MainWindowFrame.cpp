#include "app/MainWindowFrame.h"

#include <QRegularExpression>

#include <algorithm>

namespace tapekeep {

namespace {

// Six digits hold any real desktop's coordinates and keep every value far from overflowing.
const QRegularExpression& frameFormat() {
    static const QRegularExpression format(QRegularExpression::anchoredPattern(
        QStringLiteral(R"((-?\d{1,6}) (-?\d{1,6}) (\d{1,6}) (\d{1,6}))")));
    return format;
}

}  // namespace

QString MainWindowFrame::text(const QRect& frame) {
    return QStringLiteral("%1 %2 %3 %4").arg(frame.x()).arg(frame.y()).arg(frame.width()).arg(frame.height());
}

std::optional<QRect> MainWindowFrame::parse(const QString& text) {
    const QRegularExpressionMatch match = frameFormat().match(text);
    if (!match.hasMatch()) return std::nullopt;
    const QRect frame(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt(),
                      match.captured(4).toInt());
    if (frame.width() <= 0 || frame.height() <= 0) return std::nullopt;
    return frame;
}

std::optional<QRect> MainWindowFrame::defaultFrame(const QRect& screenArea) {
    if (screenArea.width() <= 0 || screenArea.height() <= 0) return std::nullopt;
    const int width = std::max(minimumSize.width(), std::min(defaultSize.width(), screenArea.width()));
    const int height = std::max(minimumSize.height(), std::min(defaultSize.height(), screenArea.height()));
    QRect frame(0, 0, width, height);
    frame.moveCenter(screenArea.center());
    return frame;
}

}  // namespace tapekeep
