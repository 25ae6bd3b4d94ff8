// kvbridged by itself: who may use its control files, what it leaves when it is killed, devices that vanish, refusals.
#include "platform/kvbridged/loop.h"
#include "platform/kvbridged/modules.h"
#include "tests/system/private_node.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <net/if.h>
#include <optional>
#include <sched.h>
#include <stdexcept>
#include <sys/fsuid.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using kvbridged::filter_owners;
using testing::HasSubstr;
using testing::Not;

constexpr unsigned long device_create = 0x40046d00;
constexpr unsigned long device_delete = 0x40046d01;
constexpr uid_t nobody = 65534;
const std::string program = KVBRIDGED;
const std::string tree = "/run/kvbridged/tree";
const std::string mng = tree + "/mng/config";

// Network and mounts of the test's own, with an empty /run.
bool node_enter()
{
  static const bool entered = geteuid() == 0 && access("/dev/fuse", R_OK | W_OK) == 0 &&
                              access("/dev/net/tun", R_OK | W_OK) == 0 && unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 &&
                              mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                              mount("tmpfs", "/run", "tmpfs", 0, nullptr) == 0;
  return entered;
}

bool wait_until(const std::function<bool()>& condition)
{
  for (int tries = 0; tries < 2000; ++tries) {
    if (condition())
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

// What the function returns, run in a child process.
int in_child(const std::function<int()>& work)
{
  const pid_t child = fork();
  if (child == 0)
    _exit(work());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// 0 or errno.
int request(int fd, unsigned long code, const char* device)
{
  return ioctl(fd, code, device) == 0 ? 0 : errno;
}

int opened_request(unsigned long code, const char* device)
{
  const int fd = open(mng.c_str(), O_RDONLY | O_CLOEXEC);
  const int result = fd < 0 ? errno : request(fd, code, device);
  if (fd >= 0)
    close(fd);
  return result;
}

void become_nobody()
{
  if (setgid(nobody) != 0 || setuid(nobody) != 0)
    _exit(99);
}

size_t mount_count()
{
  std::ifstream mounts("/proc/self/mountinfo");
  size_t count = 0;
  for (std::string line; std::getline(mounts, line);)
    ++count;
  return count;
}

class Kvbridged : public testing::Test {
protected:
  void SetUp() override
  {
    if (!node_enter())
      GTEST_SKIP() << "needs root, namespaces, FUSE and TAP devices";
    mounts = mount_count();
    start();
  }
  void TearDown() override
  {
    if (!running)
      return;
    EXPECT_EQ(running->end(), 0);
    EXPECT_FALSE(std::filesystem::exists("/run/kvbridged"));
    EXPECT_EQ(mount_count(), mounts);
  }
  void start()
  {
    running.emplace(std::vector<std::string>{program, "run", "--bridge", "br0"}, output);
    ASSERT_TRUE(wait_until([] { return access(mng.c_str(), R_OK) == 0; })) << running->output();
  }

  const std::string output = testing::TempDir() + "kvbridged_test." + std::to_string(getpid());
  std::optional<background> running;
  size_t mounts = 0;
};

// The status that it ends with; its output goes to `said`.
int status_of(std::vector<std::string> arguments, std::string* said = nullptr)
{
  arguments.insert(arguments.begin(), program);
  background one(arguments, testing::TempDir() + "kvbridged_status." + std::to_string(getpid()));
  const int status = one.wait();
  if (said)
    *said = one.output();
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Kvbridged, ControlFilesAreRootsAlone)
{
  const int inherited = open(mng.c_str(), O_RDONLY);
  ASSERT_GE(inherited, 0);
  EXPECT_EQ(in_child([] {
              become_nobody();
              return opened_request(device_create, "br0_pppoe");
            }),
            EACCES);
  EXPECT_EQ(in_child([&] {
              become_nobody();
              return request(inherited, device_create, "br0_pppoe");
            }),
            EACCES);
  // A service that works in a user's name for a moment.
  EXPECT_EQ(in_child([&] {
              setfsuid(nobody);
              return opened_request(device_create, "br0_pppoe");
            }),
            EACCES);
  EXPECT_EQ(in_child([&] {
              setfsuid(nobody);
              return request(inherited, device_create, "br0_pppoe");
            }),
            EACCES);
  EXPECT_EQ(if_nametoindex("br0_pppoe"), 0u);
  EXPECT_EQ(request(inherited, device_create, "br0_pppoe"), 0);
  close(inherited);
}

TEST_F(Kvbridged, DevicesAreThoseOfBridges)
{
  for (const char* name : {"", "eth7", "br1_pppoe", "br%d_pppoe", "br0_pppoe_and_more"})
    EXPECT_EQ(opened_request(device_create, name), EINVAL) << name;
  EXPECT_EQ(opened_request(device_delete, "br0_pppoe"), ENODEV);
  EXPECT_EQ(opened_request(device_create, "br0_pppoe"), 0);
  EXPECT_EQ(opened_request(device_create, "br0_pppoe"), EEXIST);
  EXPECT_EQ(opened_request(device_delete, "br0_pppoe"), 0);
}

long cpu_ticks(int pid)
{
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string word;
  long user = 0;
  for (int i = 0; i < 13; ++i)
    stat >> word;
  stat >> user;
  long system = 0;
  stat >> system;
  return user + system;
}

TEST_F(Kvbridged, DeviceDeletedUnderItIsForgotten)
{
  ASSERT_EQ(opened_request(device_create, "br0_pppoe"), 0);
  ASSERT_EQ(std::system("ip link del br0_pppoe"), 0);
  EXPECT_TRUE(wait_until([&] { return running->output().find("was deleted by somebody else") != std::string::npos; }));
  const long before = cpu_ticks(running->pid());
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LT(cpu_ticks(running->pid()) - before, 10) << "of 30";
  EXPECT_EQ(opened_request(device_create, "br0_pppoe"), 0);
}

TEST_F(Kvbridged, LivingOneIsNotDisplaced)
{
  std::string said;
  EXPECT_EQ(status_of({"run", "--bridge", "br0"}, &said), 1);
  EXPECT_EQ(said, "kvbridged: a kvbridged serves " + tree + " already\n");
  EXPECT_EQ(opened_request(device_create, "br0_pppoe"), 0);
}

// A command in its namespace finds the files of whichever kvbridged serves the tree.
TEST_F(Kvbridged, NextOneTakesOverWhatAKilledOneLeft)
{
  const std::string seen = testing::TempDir() + "kvbridged_seen." + std::to_string(getpid());
  const std::string look = "cat; test -e /proc/net/mng/config && test -e /proc/self/status && test -e /proc/net/dev";
  int gate[2];
  ASSERT_EQ(pipe2(gate, O_CLOEXEC), 0);
  const pid_t command = fork();
  if (command == 0) {
    dup2(gate[0], STDIN_FILENO);
    execl(program.c_str(), program.c_str(), "exec", "--", "sh", "-c", look.c_str(), nullptr);
    _exit(127);
  }
  const std::string comm = "/proc/" + std::to_string(command) + "/comm";
  ASSERT_TRUE(wait_until([&] {
    std::string name;
    std::ifstream(comm) >> name;
    return name == "sh";
  }));
  for (int round = 0; round < 3; ++round) {
    kill(running->pid(), SIGKILL);
    ASSERT_NE(running->wait(), 0);
    EXPECT_NE(access(mng.c_str(), R_OK), 0);
    EXPECT_EQ(status_of({"exec", "--", "true"}), 1);
    start();
    EXPECT_EQ(opened_request(device_create, "br0_pppoe"), 0);
  }
  close(gate[0]);
  close(gate[1]);
  int status = -1;
  waitpid(command, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(Kvbridged, PlaceThatOthersCanChangeIsRefused)
{
  std::string said;
  mkdir("/run/open", 0755);
  chmod("/run/open", 0777);
  EXPECT_EQ(status_of({"--tree", "/run/open/tree", "run", "--bridge", "br1"}, &said), 1);
  EXPECT_EQ(said, "kvbridged: /run/open is no folder that only root can change\n");
  EXPECT_EQ(status_of({"--tree", "/run/open/tree", "exec", "--", "true"}), 1);
  std::filesystem::create_directories("/run/own/full/tree");
  std::filesystem::create_directory_symlink("/run/open", "/run/own/link");
  std::filesystem::create_directory("/run/own/theirs");
  ASSERT_EQ(chown("/run/own/theirs", nobody, nobody), 0);
  for (const char* place : {"/run/own/link", "/run/own/theirs", "/run/own/full"})
    EXPECT_EQ(status_of({"--tree", place, "run", "--bridge", "br1"}), 1) << place;
  EXPECT_FALSE(std::filesystem::exists("/run/own/full.lock"));
}

TEST_F(Kvbridged, ExitStatusesAreThoseOfTheManual)
{
  EXPECT_EQ(status_of({"--help"}), 0);
  EXPECT_EQ(status_of({}), 2);
  EXPECT_EQ(status_of({"run"}), 2);
  EXPECT_EQ(status_of({"run", "--bridge", "br1,color=red"}), 2);
  EXPECT_EQ(status_of({"run", "--bridge", "br1", "--port", "br2,1,subscriber,eth0"}), 2);
  EXPECT_EQ(status_of({"run", "--bridge", "br1", "--port", "br1,1,subscriber,nosuch0"}), 1);
  EXPECT_EQ(status_of({"exec", "--", "/no/such/program"}), 1);
  umount2(tree.c_str(), MNT_DETACH);
  const int status = running->wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
  running.reset();
}

// Who attached a filter last is remembered until that process deletes the device.
TEST(KvbridgedModules, FilterIsInForceUntilItsOwnerDeletesTheDevice)
{
  if (!node_enter())
    GTEST_SKIP() << "needs root, namespaces, FUSE and TAP devices";
  constexpr pid_t first = 100;
  constexpr pid_t second = 200;
  kvbridged::loop events;
  filter_owners kept{{"gone", 1}};  // a bridge that is no more
  kvbridged::modules modules({{.name = "brm", .ports = {}}}, events, kept, [&](const auto& now) { kept = now; });
  EXPECT_EQ(kept, filter_owners{});
  EXPECT_EQ(modules.filter_attach(0, "pppoe", "brm_pppoe", first), ENODEV);
  ASSERT_EQ(modules.device_create("brm_pppoe"), 0);
  EXPECT_EQ(modules.filter_attach(0, "pppoe", "other_pppoe", first), EINVAL);
  ASSERT_EQ(modules.filter_attach(0, "pppoe", "brm_pppoe", first), 0);
  EXPECT_EQ(kept, (filter_owners{{"brm", first}}));
  EXPECT_THAT(modules.statistics(), Not(HasSubstr("stopped")));
  modules.bridge_closed(0);
  EXPECT_THAT(modules.statistics(), HasSubstr("discovery stopped"));
  EXPECT_EQ(modules.device_delete("brm_pppoe", second), 0);  // gives up what it never had
  EXPECT_EQ(kept, (filter_owners{{"brm", first}}));
  EXPECT_EQ(modules.device_delete("brm_pppoe", first), ENODEV);
  EXPECT_EQ(kept, filter_owners{});
  EXPECT_THAT(modules.statistics(), Not(HasSubstr("stopped")));
}

TEST(KvbridgedLoop, DeadDescriptorIsGivenUp)
{
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[1]);
  kvbridged::loop events;
  unsigned calls = 0;
  events.watch(
      ends[0], [&] { ASSERT_LT(++calls, 3u); }, [&] { events.end(); });
  events.run();
  close(ends[0]);
  EXPECT_EQ(calls, 1u);
}

TEST(KvbridgedLoop, WhatAHandlerThrowsEndsIt)
{
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  kvbridged::loop events;
  events.watch(ends[0], [] { throw std::runtime_error("no more"); });
  EXPECT_THROW(events.run(), std::runtime_error);
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
