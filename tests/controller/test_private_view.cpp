// The daemon's view of the file system: what it sees, what it can write, and that the host sees nothing of it. A system
// that offers neither kind of view fails these tests.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "controller/PrivateView.h"
#include "support/child_process.h"
#include "support/temp_dir.h"

namespace controller {
namespace {

namespace fs = std::filesystem;
using rrm::testing::ChildProcess;
using rrm::testing::read_file;
using rrm::testing::write_file;

constexpr unsigned nobody = 65534;

// Prints one line for each thing that the child finds.
void report(const std::string& what, bool is_so) {
  dprintf(STDOUT_FILENO, "%s: %s\n", what.c_str(), is_so ? "yes" : "no");
}

bool can_write(const fs::path& path) {
  std::ofstream file(path);
  file << "written\n";
  return static_cast<bool>(file.flush());
}

class PrivateView : public ::testing::Test {
 protected:
  PrivateView() {
    for (const char* name : {"etc", "data", "view"}) fs::create_directories(directory_.path() / name);
    write_file(directory_.path() / "etc" / "db.json", "ours");
    fs::permissions(directory_.path(), fs::perms::all);
    for (const char* name : {"etc", "data", "view"}) fs::permissions(directory_.path() / name, fs::perms::all);
  }

  void enter(const std::vector<std::string>& targets) const {
    enter_private_view({{targets.at(0), directory_.file("etc")}, {targets.at(1), directory_.file("data")}},
                       directory_.path().string(), directory_.file("view"));
  }
  void enter() const { enter({"/etc/zal", "/mnt/data/zal"}); }

  // What a daemon would look for. `outside` is a place that may not be written.
  void look_around(const fs::path& outside) const {
    report("own etc", read_file("/etc/zal/db.json") == "ours");
    report("host's etc", !read_file("/etc/passwd").empty() && fs::exists("/etc/hosts"));
    report("write data", can_write("/mnt/data/zal/file"));
    report("write state", can_write(directory_.path() / "state"));
    report("write outside", can_write(outside / "outside"));
    report("write host's etc", can_write("/etc/zal-test-outside"));
    report("write null", can_write("/dev/null"));
    report("working directory", fs::current_path() == "/tmp" || fs::exists("."));
  }
  static constexpr const char* all_is_well =
      "own etc: yes\nhost's etc: yes\nwrite data: yes\nwrite state: yes\nwrite outside: no\nwrite host's etc: no\n"
      "write null: yes\nworking directory: yes\n";

  static std::string output_of(const std::function<void()>& body) {
    ChildProcess child([&body] {
      body();
      _exit(0);
    });
    child.wait_for_end_of_output();
    child.wait();
    return child.output();
  }

  rrm::testing::TempDir directory_;
  rrm::testing::TempDir outside_;
};

TEST_F(PrivateView, LeadsTheTwoDirectoriesElsewhereAndNothingElse) {
  EXPECT_EQ(output_of([this] {
              enter();
              look_around(outside_.path());
            }),
            all_is_well);
  EXPECT_EQ(read_file(directory_.path() / "data" / "file"), "written\n");
  EXPECT_TRUE(fs::exists(directory_.path() / "state"));
}

TEST_F(PrivateView, TheHostSeesNothingOfIt) {
  const std::string mounts = read_file("/proc/self/mountinfo");
  const bool had_etc = fs::exists("/etc/zal");
  const bool had_data = fs::exists("/mnt/data/zal");
  ChildProcess child([this] {
    enter();
    dprintf(STDOUT_FILENO, "inside\n");
    pause();
  });
  ASSERT_TRUE(child.wait_for("inside\n")) << child.output();
  EXPECT_EQ(read_file("/proc/self/mountinfo"), mounts);
  EXPECT_EQ(fs::exists("/etc/zal"), had_etc);
  EXPECT_EQ(fs::exists("/mnt/data/zal"), had_data);
  EXPECT_TRUE(fs::is_empty(directory_.path() / "view"));
}

TEST_F(PrivateView, IsOpenToAProcessWithoutPrivileges) {
  fs::permissions(outside_.path(), fs::perms::all);
  EXPECT_EQ(output_of([this] {
              fs::current_path(outside_.path());  // the tests' own may be closed to all but root
              if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setresgid(nobody, nobody, nobody) != 0 ||
                                     setresuid(nobody, nobody, nobody) != 0))
                throw std::runtime_error("cannot give up privileges");
              prctl(PR_SET_DUMPABLE, 1);  // given up with them; the maps of the user namespace need it
              enter();
              look_around(outside_.path());
            }),
            all_is_well);
}

TEST_F(PrivateView, ATargetThatExistsIsLedElsewhereToo) {
  fs::create_directories(outside_.path() / "one");
  write_file(outside_.path() / "one" / "hidden", "");
  const std::string one = outside_.file("one");
  EXPECT_EQ(output_of([this, &one] {
              enter({one, outside_.file("two/deep")});
              report("ours", read_file(one + "/db.json") == "ours");
              report("hidden", fs::exists(one + "/hidden"));
              report("deep", can_write(outside_.file("two/deep/file")));
              report("covered", can_write(outside_.file("two/file")));
            }),
            "ours: yes\nhidden: no\ndeep: yes\ncovered: no\n");
  EXPECT_FALSE(fs::exists(outside_.path() / "two"));
  EXPECT_TRUE(fs::exists(outside_.path() / "one" / "hidden"));
}

TEST_F(PrivateView, ACoveredDirectoryShowsAllItsEntries) {
  write_file(outside_.path() / "file", "text");
  write_file(outside_.path() / "directory" / "inner", "inner text");
  fs::create_symlink("directory/inner", outside_.path() / "link");
  fs::create_symlink("nowhere", outside_.path() / "dangling");
  EXPECT_EQ(output_of([this] {
              enter({outside_.file("etc"), outside_.file("data")});
              report("file", read_file(outside_.file("file")) == "text");
              report("inner", read_file(outside_.file("directory/inner")) == "inner text");
              report("link", read_file(outside_.file("link")) == "inner text");
              report("dangling", fs::is_symlink(outside_.file("dangling")));
              report("etc", read_file(outside_.file("etc/db.json")) == "ours");
            }),
            "file: yes\ninner: yes\nlink: yes\ndangling: yes\netc: yes\n");
}

TEST_F(PrivateView, ATargetAtTheRootIsPossible) {
  EXPECT_EQ(output_of([this] {
              enter({"/zal-test-view/etc", "/mnt/data/zal"});
              report("own etc", read_file("/zal-test-view/etc/db.json") == "ours");
              report("write data", can_write("/mnt/data/zal/file"));
              report("write state", can_write(directory_.path() / "state"));
              report("host", fs::exists("/etc/passwd") && fs::exists("/proc/self/status"));
            }),
            "own etc: yes\nwrite data: yes\nwrite state: yes\nhost: yes\n");
  EXPECT_FALSE(fs::exists("/zal-test-view"));
}

TEST_F(PrivateView, TheStateDirectoryMayLieInACoveredOne) {
  for (const char* name : {"etc", "data", "view"}) fs::create_directories(outside_.path() / "state" / name);
  EXPECT_EQ(output_of([this] {
              const auto state = outside_.path() / "state";
              enter_private_view({{outside_.file("new"), (state / "etc").string()}}, state.string(),
                                 (state / "view").string());
              report("write new", can_write(outside_.file("new/file")));
              report("write state", can_write(state / "file"));
              report("write beside", can_write(outside_.file("beside")));
            }),
            "write new: yes\nwrite state: yes\nwrite beside: no\n");
  EXPECT_TRUE(fs::exists(outside_.path() / "state" / "etc" / "file"));
}

TEST_F(PrivateView, ASourceThatIsNotThereIsSaid) {
  EXPECT_EQ(output_of([this] {
              enter_private_view({{"/etc/zal", directory_.file("none")}}, directory_.path().string(),
                                 directory_.file("view"));
            }),
            "cannot clone " + directory_.file("none") + ": No such file or directory\n");
}

}  // namespace
}  // namespace controller
