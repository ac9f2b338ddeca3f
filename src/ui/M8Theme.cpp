#include "ui/M8Theme.h"

#include <QCoreApplication>
#include <QEvent>
#include <QVariantMap>

#include <cmath>

#include "app/AppSettings.h"
#include "ui/M8Accent.h"

namespace tapekeep {

M8Theme::M8Theme(AppSettings& settings, SystemDarkness systemIsDark, QObject* parent)
    : QObject(parent), settings_(settings), systemIsDark_(std::move(systemIsDark)) {
    for (auto signal : {&AppSettings::appearanceChanged, &AppSettings::m8AccentChanged,
                        &AppSettings::m8TypeModeChanged, &AppSettings::m8TypeScaleChanged})
        connect(&settings_, signal, this, &M8Theme::reload);
    if (QCoreApplication::instance() != nullptr) QCoreApplication::instance()->installEventFilter(this);
    reload();
}

QColor M8Theme::accent() const {
    return M8Accent::named(accentName_).colour;
}

QVariantList M8Theme::accents() {
    QVariantList list;
    for (const auto& accent : M8Accent::all())
        list.append(
            QVariantMap{{QStringLiteral("name"), accent.name}, {QStringLiteral("colour"), accent.colour}});
    return list;
}

QString M8Theme::fontFamily() const {
    return typeMode_ == QLatin1String("sans") ? sansFamily() : monoFamily();
}

QString M8Theme::monoFamily() {
    return QStringLiteral("JetBrains Mono");
}

QString M8Theme::sansFamily() {
    return QStringLiteral("Inter");
}

double M8Theme::fontSize(double baseSize) const {
    return scaledSize(baseSize, scaleFactor());
}

double M8Theme::scaledSize(double baseSize, double factor) {
    // std::round takes halves away from zero; a little slack absorbs factors like 0.925 that
    // binary cannot hold exactly.
    return std::round(baseSize * factor * 2.0 + 1e-9) / 2.0;
}

double M8Theme::scaleFactorOf(const QString& scale) {
    if (scale == QLatin1String("xs")) return 0.85;
    if (scale == QLatin1String("sm")) return 0.925;
    if (scale == QLatin1String("lg")) return 1.1;
    if (scale == QLatin1String("xl")) return 1.25;
    return 1.0;
}

void M8Theme::systemAppearanceChanged() {
    reload();
}

bool M8Theme::eventFilter(QObject* watched, QEvent* event) {
    if (watched == QCoreApplication::instance() && event->type() == QEvent::ApplicationPaletteChange)
        systemAppearanceChanged();
    return QObject::eventFilter(watched, event);
}

void M8Theme::reload() {
    const QString appearance = settings_.appearance();
    const bool dark = appearance == QLatin1String("dark") ||
                      (appearance != QLatin1String("light") && (!systemIsDark_ || systemIsDark_()));
    const M8Palette& palette = dark ? M8Palette::dark() : M8Palette::light();
    const QString accentName = M8Accent::named(settings_.m8Accent()).name;
    const QString typeMode =
        settings_.m8TypeMode() == QLatin1String("sans") ? QStringLiteral("sans") : QStringLiteral("mono");
    const QString typeScale = settings_.m8TypeScale();
    if (dark == isDark_ && palette == palette_ && accentName == accentName_ && typeMode == typeMode_ &&
        typeScale == typeScale_)
        return;
    isDark_ = dark;
    palette_ = palette;
    accentName_ = accentName;
    typeMode_ = typeMode;
    typeScale_ = typeScale;
    emit changed();
}

}  // namespace tapekeep
