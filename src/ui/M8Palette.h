#pragma once

#include <QColor>
#include <QObject>

namespace tapekeep {

// The seventeen colours every screen is drawn from. Two fixed instances: the dark one, and the
// light paper-and-LCD one. All opaque, in sRGB.
struct M8Palette {
    Q_GADGET
    Q_PROPERTY(QColor bgVoid MEMBER bgVoid)
    Q_PROPERTY(QColor bg0 MEMBER bg0)
    Q_PROPERTY(QColor bg1 MEMBER bg1)
    Q_PROPERTY(QColor bg2 MEMBER bg2)
    Q_PROPERTY(QColor bg3 MEMBER bg3)
    Q_PROPERTY(QColor bgLCD MEMBER bgLCD)
    Q_PROPERTY(QColor ink0 MEMBER ink0)
    Q_PROPERTY(QColor ink1 MEMBER ink1)
    Q_PROPERTY(QColor ink2 MEMBER ink2)
    Q_PROPERTY(QColor ink3 MEMBER ink3)
    Q_PROPERTY(QColor inkGrid MEMBER inkGrid)
    Q_PROPERTY(QColor border0 MEMBER border0)
    Q_PROPERTY(QColor border1 MEMBER border1)
    Q_PROPERTY(QColor ok MEMBER ok)
    Q_PROPERTY(QColor warn MEMBER warn)
    Q_PROPERTY(QColor err MEMBER err)
    Q_PROPERTY(QColor lcdDim MEMBER lcdDim)

public:
    QColor bgVoid, bg0, bg1, bg2, bg3, bgLCD;
    QColor ink0, ink1, ink2, ink3, inkGrid;
    QColor border0, border1;
    QColor ok, warn, err;
    QColor lcdDim;

    [[nodiscard]] static const M8Palette& dark();
    [[nodiscard]] static const M8Palette& light();

    bool operator==(const M8Palette&) const = default;
};

}  // namespace tapekeep
