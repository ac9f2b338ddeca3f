#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace tapekeep {

// One alert of the application's lifecycle as the window shows it: a title, an optional text, the
// buttons from left to right, and the text of a suppression box (empty: no box).
struct LifecycleAlert {
    enum class Kind { closeWhileRunning, ejectBeforeQuit, ejectFailed };

    Kind kind;
    QString title;
    QString text;
    QStringList buttons;
    QString suppression;

    [[nodiscard]] QVariantMap variant() const {
        return {{"title", title}, {"text", text}, {"buttons", buttons}, {"suppression", suppression}};
    }
};

}  // namespace tapekeep
