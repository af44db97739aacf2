#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "SelectionScene.h"

/// Finds the objects of a scene in a view volume: a tree of boxes, followed by our exact test.
class SelectionPeer {
 public:
  virtual ~SelectionPeer() = default;
  virtual std::string name() const = 0;
  /// Appends the ids of the objects in a window, in any order.
  virtual void find(const Window& window, bool wholeInside, std::vector<std::uint32_t>& ids) = 0;
  /// Moves all objects by (dx, 0, 0).
  virtual void moveAll(float dx) = 0;
  /// Adds the object again and removes the one added last.
  virtual void addAgain(std::size_t object) = 0;
  virtual void removeLast() = 0;
};

/// Null where there is none. The scene outlives it.
#ifdef FACETBOX_PEER_BULLET
std::unique_ptr<SelectionPeer> selectionPeer(const SelectionScene& scene);
#else
inline std::unique_ptr<SelectionPeer> selectionPeer(const SelectionScene&) { return nullptr; }
#endif
