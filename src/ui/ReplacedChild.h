#pragma once

#include <QObject>

namespace tapekeep {

// Puts `next` in `slot` and tells the bindings, then lets the previous controller go once the
// event loop comes back: QML may read it until then. The bindings so move before the old one goes.
template <typename Controller, typename Notify>
void replaceChild(Controller*& slot, Controller* next, Notify notify) {
    Controller* previous = slot;
    if (previous == next) return;
    slot = next;
    notify();
    if (previous != nullptr) previous->deleteLater();
}

}  // namespace tapekeep
