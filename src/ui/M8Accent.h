#pragma once

#include <QColor>
#include <QString>

#include <array>

namespace tapekeep {

// The five accent colours, stored in the settings by name. An unknown name is the first case.
struct M8Accent {
    QString name;
    QColor colour;

    [[nodiscard]] static const std::array<M8Accent, 5>& all();
    [[nodiscard]] static const M8Accent& named(const QString& name);
};

}  // namespace tapekeep
