#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include <facetbox/picker/OctreePicker.h>

namespace util {

/// A queued change. It holds all that it needs: when it is executed, its handle may be gone.
class OctreePicker::Command {
 public:
  explicit Command(std::uint64_t serial) : mSerial(serial) {}
  virtual ~Command() = default;
  /// Called under the tree mutex.
  virtual void execute(OctreePicker& picker) = 0;

 protected:
  const std::uint64_t mSerial;
};

class OctreePicker::AddEntryCommand final : public Command {
 public:
  /// @param box  around the object in the world
  AddEntryCommand(std::uint64_t serial, PickablePointer pickable, const Box& box)
      : Command(serial), mPickable(std::move(pickable)), mBox(box) {}

  void execute(OctreePicker& picker) override {
    // Nobody could ever query the record of a dead handle, or dispose of it.
    if (!picker.mHandles.isAlive(mSerial)) return;
    HandleRecord& record = picker.mRecords[mSerial];
    // Allocate first: if memory runs out, both kinds of query find the object, or neither does.
    Pickable*& place = record.mById[mPickable->id()];
    record.mObjects.makeRoom();
    record.mBoxes.add(mBox);
    // An earlier object of this id stays in the set on purpose: view volumes still find it.
    place = mPickable.get();
    const Pickable& pickable = *mPickable;
    record.mObjects.push_back({std::move(mPickable), pickable.magnitude(), static_cast<std::uint32_t>(pickable.id()),
                               pickable.hasTriangles()});
  }

 private:
  PickablePointer mPickable;
  const Box mBox;
};

class OctreePicker::RelocateCommand final : public Command {
 public:
  RelocateCommand(std::uint64_t serial, const Vec3& offset) : Command(serial), mOffset(offset) {}

  void execute(OctreePicker& picker) override {
    HandleRecord* const record = picker.find(mSerial);
    if (!record) return;
    auto& objects = record->mObjects;
    record->mBoxes.moveAll([&](std::uint32_t number) {
      if (number + kAhead < objects.size()) prefetch(objects[number + kAhead].pickable.get());
      const Box box = objects[number].pickable->move(mOffset);
      objects[number].magnitude = objects[number].pickable->magnitude();
      return box;
    });
  }

 private:
  const Vec3 mOffset;
};

class OctreePicker::DisposeCommand final : public Command {
 public:
  using Command::Command;

  void execute(OctreePicker& picker) override {
    picker.mRecords.erase(mSerial);
    // Even without a record: additions that failed or came too late may have left triangles in the cache.
    if (picker.mHandles.free(mSerial)) picker.mMeshesMayBeUnused = true;
  }
};

}  // namespace util
