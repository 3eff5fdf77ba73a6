// How many descriptors the process may open while libwebsockets builds its context, and afterwards. The library indexes
// its table of connections by descriptor only if the limit that it finds is not above what it is told to serve; above
// that it searches the table for every event. What the rest of the process opens later (files, eventfds) must still
// fit.
#pragma once

#include <sys/resource.h>

namespace rrm {

struct DescriptorPlan {
  rlim_t while_creating = 0;  // soft limit while the context is created: the size of the library's table
  rlim_t afterwards = 0;      // soft limit from then on; never below what it was
  rlim_t sessions = 0;        // how many sessions fit; below the capacity only where the hard limit is too low
  bool operator==(const DescriptorPlan&) const = default;
};

// What `limit` allows for a server dimensioned for this many sessions.
DescriptorPlan plan_descriptors(const rlimit& limit, unsigned session_capacity);

// The process's present limit.
rlimit descriptor_limit();

// Sets the soft limit of the first stage for its life, and the one of the second at its end. The limit belongs to the
// whole process: one object at a time.
class DescriptorStage {
 public:
  explicit DescriptorStage(const DescriptorPlan& plan);
  ~DescriptorStage();
  DescriptorStage(const DescriptorStage&) = delete;
  DescriptorStage& operator=(const DescriptorStage&) = delete;

 private:
  const rlim_t afterwards_;
};

}  // namespace rrm
