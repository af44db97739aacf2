#include <facetbox/intersector/Intersector.h>

#include <facetbox/commands/Handle.h>
#include <facetbox/intersector/TriIntersector.h>

Intersector::Intersector() = default;
Intersector::Intersector(const Intersector&) {}
Intersector& Intersector::operator=(const Intersector&) { return *this; }
Intersector::~Intersector() = default;

Intersector* Intersector::createIntersector() { return new util::TriIntersector; }

Intersector* Intersector::getAssociatedIntersector(std::size_t handle) {
  return util::Handle<Intersector>::at(handle)->mOwner;
}
