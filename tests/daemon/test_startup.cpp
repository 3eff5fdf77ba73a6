// The parts of the start that are functions of their input: the process's name and the CPU list.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "daemon/startup.h"
#include "support/temp_dir.h"

namespace {

TEST(DaemonName, OnlyTheWholeNameIsTheAwaitedOne) {
  EXPECT_TRUE(has_awaited_name("zal_rrm"));
  for (const char* name : {"", "zal_rr", "zal_rrm2", "./zal_rrm", "/usr/bin/zal_rrm", "ZAL_RRM", "zal_rrm "})
    EXPECT_FALSE(has_awaited_name(name)) << name;
  EXPECT_FALSE(has_awaited_name(nullptr));
}

struct ScpuCase {
  const char* database;
  std::vector<int> cpus;
  const char* failure;
};

TEST(DaemonScpuList, ADatabaseGivesItsSortedListOrTheReasonWhyNot) {
  const std::vector<ScpuCase> cases{
      {R"({"common":{"scpu":[3, 1, 2]}})", {1, 2, 3}, nullptr},
      {R"({"common":{"scpu":[5]}})", {5}, nullptr},
      {R"({"common":{"scpu":[0, 0]}})", {0, 0}, nullptr},
      {R"({"common":{"scpu":[2000, 7]}})", {7, 2000}, nullptr},
      {R"({"common":{"scpu":[]}})", {}, nullptr},
      {"", {}, "no file"},
      {"{", {}, "no data"},
      {"nonsense", {}, "no data"},
      {"{}", {}, "no scpu data"},
      {"[]", {}, "no scpu data"},
      {R"({"common":{}})", {}, "no scpu data"},
      {R"({"common":{"scpu":{}}})", {}, "can`t allocate iterator"},
      {R"({"common":{"scpu":1}})", {}, "can`t allocate iterator"},
      {R"({"common":{"scpu":"1"}})", {}, "can`t allocate iterator"},
      {R"({"common":{"scpu":[1, "a", 2]}})", {}, "non-numeric cpu id value"},
      {R"({"common":{"scpu":[1, -2]}})", {}, "non-numeric cpu id value"},
      {R"({"common":{"scpu":[-1]}})", {}, "non-numeric cpu id value"},
      {R"({"common":{"scpu":[1.5]}})", {}, "non-numeric cpu id value"},
      {R"({"common":{"scpu":[null]}})", {}, "non-numeric cpu id value"},
      {R"({"common":{"scpu":[4294967296]}})", {}, "non-numeric cpu id value"},
  };
  for (const auto& [database, cpus, failure] : cases) {
    SCOPED_TRACE(database);
    const ScpuList list = read_scpu_list(database);
    EXPECT_EQ(list.cpus, cpus);
    EXPECT_STREQ(list.failure, failure);
  }
}

TEST(DaemonFile, WhatCannotBeReadIsEmpty) {
  const rrm::testing::TempDir directory;
  EXPECT_EQ(read_whole_file(directory.file("none").c_str()), "");
  EXPECT_EQ(read_whole_file(directory.path().c_str()), "");
  rrm::testing::write_file(directory.file("file"), std::string("a\0b\n", 4));
  EXPECT_EQ(read_whole_file(directory.file("file").c_str()), std::string("a\0b\n", 4));
}

}  // namespace
