#pragma once

#include <locale.h>

namespace tapekeep {

// While it lives, the calling thread converts characters as UTF-8 (LC_CTYPE of "C.UTF-8"), whatever
// the process's locale is; other threads are not touched. Libraries that convert file names through
// the locale (libarchive) then read and write UTF-8 names even in a process left in the "C" locale.
// Where the system has no such locale, nothing changes. One thread; not movable.
class Utf8ThreadLocale {
public:
    Utf8ThreadLocale();
    ~Utf8ThreadLocale();
    Utf8ThreadLocale(const Utf8ThreadLocale&) = delete;
    Utf8ThreadLocale& operator=(const Utf8ThreadLocale&) = delete;

private:
    locale_t utf8_ = nullptr;
    locale_t previous_ = nullptr;
};

}  // namespace tapekeep
