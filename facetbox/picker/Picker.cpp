#include <facetbox/picker/Picker.h>

#include <facetbox/commands/Handle.h>
#include <facetbox/picker/OctreePicker.h>

Picker::Picker() = default;
Picker::Picker(const Picker&) {}
Picker& Picker::operator=(const Picker&) { return *this; }
Picker::~Picker() = default;

Picker* Picker::createPicker() { return new util::OctreePicker; }

Picker* Picker::getAssociatedPicker(std::size_t handle) { return util::Handle<Picker>::at(handle)->mOwner; }
