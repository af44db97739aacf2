#pragma once

/// FACETBOX_EXPORT marks the symbols that hosts may link against; all others are hidden.
/// FACETBOX_LOCAL hides a member of an exported class.

#define FACETBOX_EXPORT __attribute__((visibility("default")))
#define FACETBOX_LOCAL __attribute__((visibility("hidden")))
