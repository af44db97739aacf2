#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define FACETBOX_SEARCHES_LEAKS
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FACETBOX_SEARCHES_LEAKS
#endif
#endif
#if defined(FACETBOX_SEARCHES_LEAKS)
#include <sanitizer/lsan_interface.h>
#endif

namespace util {

/// Tells a leak checker that this memory is never released on purpose.
inline void markIntendedLeak([[maybe_unused]] const void* memory) {
#if defined(FACETBOX_SEARCHES_LEAKS)
  __lsan_ignore_object(memory);
#endif
}

}  // namespace util
