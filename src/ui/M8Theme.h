#pragma once

#include <QColor>
#include <QObject>
#include <QString>
#include <QVariantList>

#include <functional>

#include "ui/M8Palette.h"

namespace tapekeep {

class AppSettings;

// The one theme object every screen and control reads: the palette of the appearance setting, the
// accent, and the type rules. It follows the settings, so that a change repaints everything at
// once without a restart. GUI thread only.
class M8Theme : public QObject {
    Q_OBJECT
    Q_PROPERTY(tapekeep::M8Palette palette READ palette NOTIFY changed)
    Q_PROPERTY(bool isDark READ isDark NOTIFY changed)
    Q_PROPERTY(QColor accent READ accent NOTIFY changed)
    Q_PROPERTY(QString accentName READ accentName NOTIFY changed)
    Q_PROPERTY(QVariantList accents READ accents CONSTANT)
    Q_PROPERTY(QString typeMode READ typeMode NOTIFY changed)
    Q_PROPERTY(QString typeScale READ typeScale NOTIFY changed)
    Q_PROPERTY(double scaleFactor READ scaleFactor NOTIFY changed)
    Q_PROPERTY(QString fontFamily READ fontFamily NOTIFY changed)
    Q_PROPERTY(QString monoFamily READ monoFamily CONSTANT)

public:
    // Whether the desktop asks for dark colours; read for the "system" appearance.
    using SystemDarkness = std::function<bool()>;

    M8Theme(AppSettings& settings, SystemDarkness systemIsDark, QObject* parent = nullptr);

    [[nodiscard]] const M8Palette& palette() const { return palette_; }
    [[nodiscard]] bool isDark() const { return isDark_; }
    [[nodiscard]] QColor accent() const;
    [[nodiscard]] QString accentName() const { return accentName_; }
    [[nodiscard]] static QVariantList accents();
    [[nodiscard]] QString typeMode() const { return typeMode_; }
    [[nodiscard]] QString typeScale() const { return typeScale_; }
    [[nodiscard]] double scaleFactor() const { return scaleFactorOf(typeScale_); }
    [[nodiscard]] QString fontFamily() const;
    [[nodiscard]] static QString monoFamily();
    [[nodiscard]] static QString sansFamily();

    // The point size of a text style: its base size (one of 9, 10, 11, 12, 13, 15, 18, 26, 48)
    // times the scale's factor, to the nearest half point, halves away from zero.
    Q_INVOKABLE [[nodiscard]] double fontSize(double baseSize) const;
    [[nodiscard]] static double scaledSize(double baseSize, double factor);
    // The same for QML, where the factor is passed so that a binding follows the scale's changes.
    Q_INVOKABLE [[nodiscard]] double sizeAt(double baseSize, double factor) const {
        return scaledSize(baseSize, factor);
    }
    [[nodiscard]] static double scaleFactorOf(const QString& scale);  // unknown scales are "md"

    // The desktop's colours changed; the "system" appearance may follow.
    void systemAppearanceChanged();

signals:
    void changed();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void reload();

    AppSettings& settings_;
    SystemDarkness systemIsDark_;
    M8Palette palette_;
    bool isDark_ = true;
    QString accentName_;
    QString typeMode_;
    QString typeScale_;
};

}  // namespace tapekeep
