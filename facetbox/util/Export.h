#pragma once

/// FACETBOX_EXPORT marks what hosts may link against. Everything else in the library is built hidden;
/// FACETBOX_LOCAL hides a member of an exported class.

#define FACETBOX_EXPORT __attribute__((visibility("default")))
#define FACETBOX_LOCAL __attribute__((visibility("hidden")))
