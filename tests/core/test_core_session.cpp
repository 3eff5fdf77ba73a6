// What makes two sessions the same connection, and the map with its lock.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/BaseSession.h"
#include "core/SafeMap.h"

namespace rrm {
namespace {

TEST(BaseSession, IdentityTellsServiceThreadAndNumberApart) {
  const BaseSession one{nullptr, 0, 1};
  EXPECT_NE(one.identity(), (BaseSession{nullptr, 0, 2}.identity()));
  EXPECT_NE(one.identity(), (BaseSession{nullptr, 1, 1}.identity()));
  EXPECT_NE((BaseSession{nullptr, 1, 0}.identity()), (BaseSession{nullptr, 0, 1}.identity()));
  EXPECT_EQ((BaseSession{nullptr, -1, 0xffffffff}.identity()), UINT64_MAX);
}

TEST(BaseSession, IdentityIgnoresTheHandle) {
  auto* handle = reinterpret_cast<lws*>(std::uintptr_t{8});
  EXPECT_EQ((BaseSession{handle, 2, 3}.identity()), (BaseSession{nullptr, 2, 3}.identity()));
}

TEST(BaseSession, NoSessionIsAllZero) {
  EXPECT_EQ(no_session.wsi, nullptr);
  EXPECT_EQ(no_session.tsi, 0);
  EXPECT_EQ(no_session.id, 0u);
}

TEST(SafeMap, ValuesOutliveTheirEntryWhileSomebodyHoldsThem) {
  SafeUnorderedMap<std::string, int> map;
  std::shared_ptr<int> held;
  {
    MutexLock lock(map.mutex);
    map.map["a"] = std::make_shared<int>(1);
    held = map.map["a"];
    map.map.erase("a");
  }
  EXPECT_EQ(*held, 1);
}

TEST(SafeMap, ItsEndReleasesTheValues) {
  const auto value = std::make_shared<int>(1);
  {
    std::unique_ptr<SafeMapBase<int, int, std::unordered_map<int, std::shared_ptr<int>>>> map =
        std::make_unique<SafeUnorderedMap<int, int>>();
    MutexLock lock(map->mutex);
    map->map[1] = value;
    EXPECT_EQ(value.use_count(), 2);
  }
  EXPECT_EQ(value.use_count(), 1);
}

}  // namespace
}  // namespace rrm
