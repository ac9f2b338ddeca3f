#include "ui/M8Accent.h"

namespace tapekeep {

const std::array<M8Accent, 5>& M8Accent::all() {
    static const std::array<M8Accent, 5> accents{{
        {QStringLiteral("pink"), QColor(0xFF3A82)},
        {QStringLiteral("lime"), QColor(0xB8FF3A)},
        {QStringLiteral("amber"), QColor(0xFFB23A)},
        {QStringLiteral("cyan"), QColor(0x3AE6FF)},
        {QStringLiteral("violet"), QColor(0xA855F7)},
    }};
    return accents;
}

const M8Accent& M8Accent::named(const QString& name) {
    for (const auto& accent : all())
        if (accent.name == name) return accent;
    return all().front();
}

}  // namespace tapekeep
