#include "core/Utf8ThreadLocale.h"

namespace tapekeep {

Utf8ThreadLocale::Utf8ThreadLocale() : utf8_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
    if (utf8_ != nullptr) previous_ = ::uselocale(utf8_);
}

Utf8ThreadLocale::~Utf8ThreadLocale() {
    if (utf8_ == nullptr) return;
    ::uselocale(previous_);
    ::freelocale(utf8_);
}

}  // namespace tapekeep
