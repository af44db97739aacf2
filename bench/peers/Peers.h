#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../CleanupWorkloads.h"

/// A peer's result, in the flat arrays that it gives; released with this object.
class Answer {
 public:
  virtual ~Answer() = default;
  /// As a record, for the check. Not timed.
  virtual Workload toRecord() const = 0;
};

/// An answer whose arrays are the record's.
struct RecordAnswer : Answer {
  Workload record;
  Workload toRecord() const override { return record; }
};

/// Another library's equivalent of one of our calls.
struct Peer {
  std::string name;      ///< library and function
  std::string caseName;  ///< our case that it is compared with
  double bar;            ///< the largest ratio of our time to its time; 0: for information
  /// From the record's arrays to flat arrays, the library's own structures built and released within.
  std::function<std::unique_ptr<Answer>(const Workload&)> run;
};

std::vector<Peer> vtkPeers();
std::vector<Peer> cgalPeers();
std::vector<Peer> meshoptimizerPeers();
