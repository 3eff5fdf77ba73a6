// A map with its lock. Users lock `mutex` themselves and work on `map` directly, so that one critical section can
// cover a look-up and what follows from it. Values are shared: copy the pointer out, release the lock, then use it.
#pragma once

#include <memory>
#include <unordered_map>

#include "core/mutex.h"

namespace rrm {

template <class K, class V, class Map>
class SafeMapBase {
 public:
  SafeMapBase() = default;
  SafeMapBase(const SafeMapBase&) = delete;
  SafeMapBase& operator=(const SafeMapBase&) = delete;
  virtual ~SafeMapBase() {
    MutexLock lock(mutex);
    map.clear();
  }

  mutable Mutex mutex;
  Map map RRM_GUARDED_BY(mutex);
};

template <class K, class V>
class SafeUnorderedMap : public SafeMapBase<K, V, std::unordered_map<K, std::shared_ptr<V>>> {};

}  // namespace rrm
