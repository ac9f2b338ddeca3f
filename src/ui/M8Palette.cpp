#include "ui/M8Palette.h"

namespace tapekeep {

const M8Palette& M8Palette::dark() {
    static const M8Palette palette{QColor(0x08080B), QColor(0x0E0F14), QColor(0x14161D), QColor(0x1B1E28),
                                   QColor(0x252935), QColor(0x0B0D11), QColor(0xE8ECF2), QColor(0xA8B0BF),
                                   QColor(0x6B7385), QColor(0x3E4350), QColor(0x1E2029), QColor(0x232733),
                                   QColor(0x1A1D26), QColor(0x4ADE80), QColor(0xFBBF24), QColor(0xF87171),
                                   QColor(0x2A3040)};
    return palette;
}

const M8Palette& M8Palette::light() {
    static const M8Palette palette{QColor(0xE8E4DC), QColor(0xFAF8F4), QColor(0xF2EFE8), QColor(0xEBE7DE),
                                   QColor(0xE0DCCF), QColor(0xEDE9DE), QColor(0x14120E), QColor(0x4A4739),
                                   QColor(0x76725F), QColor(0xA8A493), QColor(0xDCD7C9), QColor(0xC8C3B3),
                                   QColor(0xDCD7C9), QColor(0x15803D), QColor(0xB45309), QColor(0xB91D1D),
                                   QColor(0xB8B3A0)};
    return palette;
}

}  // namespace tapekeep
