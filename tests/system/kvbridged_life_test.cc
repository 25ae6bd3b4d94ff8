// kvbridged by itself: who may use its control files, what it leaves when it is killed, devices that vanish, refusals.
#include "platform/kvbridge/control.h"
#include "platform/kvbridged/loop.h"
#include "platform/kvbridged/modules.h"
#include "tests/support/files.h"
#include "tests/system/node_test.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <net/if.h>
#include <optional>
#include <sys/fsuid.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using kvbridged::filter_owners;
using testing::HasSubstr;
using testing::Not;

constexpr uid_t nobody = 65534;
const std::string tree = "/run/kvbridged/tree";
const std::string mng = tree + "/mng/config";

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
  return fd < 0 || ioctl(fd, code, device) != 0 ? errno : 0;
}

int opened_request(unsigned long code, const char* device)
{
  return request(descriptor(open(mng.c_str(), O_RDONLY | O_CLOEXEC)).get(), code, device);
}

class Kvbridged : public device_node_test {
protected:
  void SetUp() override
  {
    device_node_test::SetUp();
    if (IsSkipped())
      return;
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
    running.emplace(std::vector<std::string>{PROGRAMS "/kvbridged", "run", "--bridge", "br0", "--bridge", "br1",
                                             "--bridge", "br2"});
    ASSERT_TRUE(wait_until([this] { return running->output() == "kvbridged: ready at " + tree + "\n"; }))
        << running->output();
    ASSERT_EQ(access(mng.c_str(), R_OK), 0);
  }
  // The bridge's control file, its filter attached by it.
  static descriptor filter_attached()
  {
    descriptor bridge(open((tree + "/kvbridge/br0/bridge").c_str(), O_RDONLY | O_CLOEXEC));
    char record[34] = "pppoe";
    std::strcpy(record + 17, "br0_pppoe");
    EXPECT_EQ(request(bridge.get(), kvbridge_filter_attach, record), 0);
    return bridge;
  }
  static std::string mount_count() { return run("wc -l </proc/self/mountinfo").second; }
  // Time of the processor that it has used, in hundredths of a second.
  int cpu_ticks() const
  {
    return std::stoi(run("awk '{ print $14 + $15 }' /proc/" + std::to_string(running->pid()) + "/stat").second);
  }
  static int status_of(const std::string& arguments) { return run("kvbridged " + arguments).first; }

  std::optional<background> running;
  std::string mounts;
};

TEST_F(Kvbridged, ControlFilesAreRootsAlone)
{
  const descriptor inherited(open(mng.c_str(), O_RDONLY));
  const auto drop_rights = [] { return setgid(nobody) == 0 && setuid(nobody) == 0; };
  // A service that works in a user's name for a moment.
  const auto lend_rights = [] { return setfsuid(nobody) == 0; };
  const std::function<bool()> ways[] = {drop_rights, lend_rights};
  for (const auto& become_nobody : ways) {
    EXPECT_EQ(in_child([&] { return become_nobody() ? opened_request(kvmng_device_create, "br0_pppoe") : -1; }),
              EACCES);
    EXPECT_EQ(
        in_child([&] { return become_nobody() ? request(inherited.get(), kvmng_device_create, "br0_pppoe") : -1; }),
        EACCES);
  }
  EXPECT_EQ(if_nametoindex("br0_pppoe"), 0u);
  EXPECT_EQ(request(inherited.get(), kvmng_device_create, "br0_pppoe"), 0);
}

TEST_F(Kvbridged, ControlFilesAnswerAsThoseOfTheModules)
{
  EXPECT_EQ(run("cd " + tree + " && find . -printf '%p %y%m %n %i\\n' | LC_ALL=C sort").second,
            ". d500 1 1\n./kvbridge d500 1 3\n./kvbridge/br0 d500 1 16\n./kvbridge/br0/bridge f400 1 17\n"
            "./kvbridge/br1 d500 1 18\n./kvbridge/br1/bridge f400 1 19\n"
            "./kvbridge/br2 d500 1 20\n./kvbridge/br2/bridge f400 1 21\n"
            "./kvbridge/config f400 1 5\n./mng d500 1 2\n./mng/config f400 1 4\n");
  const auto number = [](const std::string& file, unsigned long code) {
    const descriptor fd(open((tree + file).c_str(), O_RDONLY | O_CLOEXEC));
    int32_t value = 0;
    return ioctl(fd.get(), code, &value) == 0 ? value : -errno;
  };
  EXPECT_EQ(number("/mng/config", kvmng_version_get), kvmng_version_expected);
  EXPECT_EQ(number("/kvbridge/config", kvbridge_version_get), kvbridge_version_expected);
  EXPECT_EQ(number("/kvbridge/br0/bridge", kvbridge_info_get), 0x88a8);
  for (const char* file : {"/mng/config", "/kvbridge/config", "/kvbridge/br0/bridge"})
    EXPECT_EQ(number(file, 0x80046dff), -ENOTTY);

  // The filter is the process's, whichever of its threads attached it.
  ASSERT_EQ(opened_request(kvmng_device_create, "br0_pppoe"), 0);
  const std::string owner = "br0 " + std::to_string(getpid()) + "\n";
  descriptor bridge;
  std::thread([&] { bridge = filter_attached(); }).join();
  EXPECT_THAT(file_text(tree + ".lock"), testing::StartsWith(owner));
  EXPECT_EQ(in_child([] { return opened_request(kvmng_device_delete, "br0_pppoe"); }), 0);
  EXPECT_THAT(file_text(tree + ".lock"), testing::StartsWith(owner));
  std::thread([] { EXPECT_EQ(opened_request(kvmng_device_delete, "br0_pppoe"), ENODEV); }).join();
  EXPECT_THAT(file_text(tree + ".lock"), Not(HasSubstr(owner)));
}

TEST_F(Kvbridged, DevicesAreThoseOfBridges)
{
  for (const char* name : {"", "eth7", "br3_pppoe", "br%d_pppoe", "br0_pppoe_and_more"})
    EXPECT_EQ(opened_request(kvmng_device_create, name), EINVAL) << name;
  EXPECT_EQ(opened_request(kvmng_device_delete, "br0_pppoe"), ENODEV);
  EXPECT_EQ(opened_request(kvmng_device_create, "br0_pppoe"), 0);
  EXPECT_EQ(opened_request(kvmng_device_create, "br0_pppoe"), EEXIST);
  EXPECT_EQ(opened_request(kvmng_device_delete, "br0_pppoe"), 0);
}

TEST_F(Kvbridged, DeviceDeletedUnderItIsForgotten)
{
  ASSERT_EQ(opened_request(kvmng_device_create, "br0_pppoe"), 0);
  ASSERT_EQ(run("ip link del br0_pppoe").first, 0);
  EXPECT_TRUE(wait_until([&] { return running->output().find("was deleted by somebody else") != std::string::npos; }));
  const int before = cpu_ticks();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LT(cpu_ticks() - before, 10) << "of 30";
  EXPECT_EQ(opened_request(kvmng_device_create, "br0_pppoe"), 0);
}

TEST_F(Kvbridged, LivingOneIsNotDisplaced)
{
  EXPECT_EQ(run("kvbridged run --bridge br0"), std::pair(1, "kvbridged: a kvbridged serves " + tree + " already\n"));
  EXPECT_EQ(opened_request(kvmng_device_create, "br0_pppoe"), 0);
}

// A command in its namespace finds the files of whichever kvbridged serves the tree.
TEST_F(Kvbridged, NextOneTakesOverWhatAKilledOneLeft)
{
  const std::string go = work + "/go";
  const std::string look = "echo waits; while ! test -e " + go +
                           "; do sleep 0.02; done;"
                           "test -e /proc/net/mng/config && test -e /proc/self/status && test -e /proc/net/dev";
  background command({PROGRAMS "/kvbridged", "exec", "--", "sh", "-c", look});
  ASSERT_TRUE(wait_until([&] { return command.output() == "waits\n"; }));
  const std::string own = "br0 " + std::to_string(getpid()) + "\n.\n";
  descriptor filter;
  for (int round = 0; round < 3; ++round) {
    running->signal(SIGKILL);
    running->wait();
    EXPECT_NE(access(mng.c_str(), R_OK), 0);
    EXPECT_EQ(status_of("exec -- true"), 1);
    start();
    EXPECT_EQ(file_text(tree + ".lock"), round == 0 ? "" : own);
    EXPECT_EQ(opened_request(kvmng_device_create, "br0_pppoe"), 0);
    filter = filter_attached();
  }
  EXPECT_EQ(opened_request(kvmng_device_delete, "br0_pppoe"), 0);
  EXPECT_EQ(file_text(tree + ".lock"), ".\n");
  std::ofstream(go).close();
  EXPECT_EQ(command.wait(), 0);
}

TEST_F(Kvbridged, PlaceThatOthersCanChangeIsRefused)
{
  ASSERT_EQ(run("mkdir -p /run/open/deep /run/sticky /run/own/full/tree /run/own/theirs; chmod 777 /run/open;"
                "chmod 1777 /run/sticky;"
                "ln -s /run/open /run/own/link; chown nobody /run/own/theirs")
                .first,
            0);
  EXPECT_EQ(run("kvbridged --tree /run/open/tree run --bridge br1"),
            std::pair(1, std::string("kvbridged: /run/open is no folder that only root can change\n")));
  EXPECT_EQ(status_of("--tree /run/open/tree exec -- true"), 1);
  for (const std::string place : {"/run/open/deep/tree", "/run/sticky/tree"})
    EXPECT_EQ(status_of("--tree " + place + " run --bridge br1"), 1) << place;
  for (const std::string place : {"/run/own/link", "/run/own/theirs", "/run/own/full"})
    EXPECT_EQ(status_of("--tree " + place + " run --bridge br1"), 1) << place;
  EXPECT_EQ(run("kvbridged --tree /run/own/theirs/tree run --bridge br1"),
            std::pair(1, std::string("kvbridged: /run/own/theirs is no folder that only root can change\n")));
  EXPECT_FALSE(std::filesystem::exists("/run/own/full.lock"));
  EXPECT_EQ(run("ln -s " + tree + " /run/own/other; ln -s " + tree + ".lock /run/own/other.lock").first, 0);
  EXPECT_EQ(status_of("--tree /run/own/other exec -- true"), 1);
}

TEST_F(Kvbridged, FoldersAboveItsTreeAreMade)
{
  EXPECT_EQ(run("kvbridged --tree /run/deep/er/tree run --bridge br1 --port br1,1,subscriber,nosuch0"),
            std::pair(1, std::string("kvbridged: no such interface: 'nosuch0'\n")));
  EXPECT_EQ(run("stat -c %A /run/deep /run/deep/er; ls -A /run/deep/er").second, "drwxr-xr-x\ndrwxr-xr-x\n");
}

TEST_F(Kvbridged, ExitStatusesAreThoseOfTheManual)
{
  const std::string help = "\nRun with --help for more information.\n";
  const struct {
    std::string arguments;
    int status;
    testing::Matcher<std::string> told;
  } runs[] = {
      {"--help", 0, testing::StartsWith("Plays the kernel modules kvbridge and kvmng in user space.\n")},
      {"", 2, "A subcommand is required" + help},
      {"run", 2, "kvbridged: no --bridge and no --kernel-bridge\n"},
      {"run --bridge br1,color=red", 2, "kvbridged: no such bridge setting: 'color=red'\n"},
      {"run --bridge br1 --port br2,1,subscriber,eth0", 2, "kvbridged: no such bridge: 'br2'\n"},
      {"run --bridge br1 --port br1,1,subscriber,nosuch0", 1, "kvbridged: a kvbridged serves " + tree + " already\n"},
      {"run --kernel-bridge nosuch0", 1, "kvbridged: a kvbridged serves " + tree + " already\n"},
      {"run --kernel-bridge br1 --port eth1=0", 2, "kvbridged: no number from 1 to 65535: '0'\n"},
      {"run --kernel-bridge br1 --when-down ajar", 2, "--when-down: ajar not in {closed,open}" + help},
      {"run --kernel-bridge br1 --padi-rate 20,burst=0", 2, "kvbridged: no number from 1 to 1000000: '0'\n"},
      {"release", 2, "bridge is required" + help},
      {"exec -- /no/such/program", 1, "kvbridged: cannot run /no/such/program: No such file or directory\n"},
  };
  for (const auto& [arguments, status, told] : runs)
    EXPECT_THAT(run("kvbridged " + arguments), testing::Pair(status, told)) << arguments;
  if (const auto told = run("kvbridged status"); told.first == 0) {  // where eBPF is allowed
    EXPECT_EQ(told.second + run("kvbridged status --json").second, "{}\n") << "of no kernel bridge";
  }
  umount2(tree.c_str(), MNT_DETACH);
  EXPECT_EQ(running->wait(), 1);
  running.reset();
}

// Who attached a filter last is remembered until that process deletes the device.
TEST_F(Kvbridged, FilterIsInForceUntilItsOwnerDeletesTheDevice)
{
  constexpr pid_t first = 100;
  constexpr pid_t second = 200;
  kvbridged::loop events;
  filter_owners kept{{"gone", 1}};  // a bridge that is no more
  kvbridged::modules modules({{.name = "brm", .ports = {}}, {.name = "brn", .ports = {}}}, events, kept,
                             [&](const auto& now) { kept = now; });
  const auto told = [&](const std::string& stopped) {
    const std::string counts = ": to agent 0, from agent 0, forwarded 0, dropped 0, answered 0, too large 0, hidden 0, "
                               "not theirs 0, not whole 0, refused by device 0";
    EXPECT_EQ(modules.statistics(), "brm" + counts + stopped + "\nbrn" + counts + "\n");
  };
  EXPECT_EQ(kept, filter_owners{});
  EXPECT_EQ(modules.filter_attach(0, "pppoe", "brm_pppoe", first), ENODEV);
  ASSERT_EQ(modules.device_create("brm_pppoe"), 0);
  EXPECT_EQ(modules.filter_attach(0, "pppoe", "other_pppoe", first), EINVAL);
  ASSERT_EQ(modules.filter_attach(0, "pppoe", "brm_pppoe", first), 0);
  EXPECT_EQ(kept, (filter_owners{{"brm", first}}));
  told("");
  modules.bridge_closed(0);
  told(", discovery stopped");
  EXPECT_EQ(modules.device_delete("brm_pppoe", second), 0);  // gives up what it never had
  EXPECT_EQ(kept, (filter_owners{{"brm", first}}));
  EXPECT_EQ(modules.device_delete("brm_pppoe", first), ENODEV);
  EXPECT_EQ(kept, filter_owners{});
  told("");
}

}  // namespace
