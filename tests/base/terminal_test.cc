// What reaches a terminal, in whose name, and what cannot hold the process up.
#include "base/caller.h"
#include "base/terminal.h"
#include "tests/support/files.h"
#include "tests/support/played_clock.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pty.h>
#include <sched.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr char not_opened[] = "Error opening tty file for writing: ";
constexpr char not_written[] = "Error writing to file: ";
constexpr uid_t operator_id = 54321;  // nobody's on any machine
constexpr gid_t operator_group = 54322;
constexpr gid_t further_group = 54323;

class Terminal : public testing::Test {
protected:
  ~Terminal() override { EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left behind"; }

  std::string file(const std::string& name, uid_t user, gid_t group, mode_t mode) const
  {
    const std::string path = folder_ / name;
    std::ofstream(path) << "as it was";
    EXPECT_EQ(chown(path.c_str(), user, group), 0);
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    return path;
  }

  const own_folder own_;
  const std::filesystem::path folder_ = own_.path;
};

TEST_F(Terminal, TakesTheTextOrSaysWhatFailed)
{
  const std::string path = file("file", getuid(), getgid(), 0600);
  EXPECT_EQ(terminal_write(path, "AS"), nullptr);
  EXPECT_EQ(file_text(path), "AS it was") << "not truncated";
  const std::string fifo = folder_ / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& bad : {folder_.string(), fifo, std::string("/nonexistent/tty"), std::string(5000, '/') + "x"})
    EXPECT_STREQ(terminal_write(bad, "text"), not_opened) << bad;
  EXPECT_STREQ(terminal_write("/dev/full", "text"), not_written);
}

TEST_F(Terminal, NothingWaitsForItsReader)
{
  int master = -1, slave = -1;
  char name[64];
  ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  ASSERT_EQ(tcflow(slave, TCOOFF), 0);  // as Ctrl-S does
  EXPECT_STREQ(terminal_write(name, "report"), not_written);
  ASSERT_EQ(tcflow(slave, TCOON), 0);
  EXPECT_EQ(terminal_write(name, "report"), nullptr);
  close(slave);
  close(master);

  const std::string fifo = folder_ / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_STREQ(terminal_write(fifo, std::string(300'000, 'r')), not_written) << "a short write is not completed";
  char block[300'000];
  EXPECT_EQ(read(reader, block, sizeof block), 65536);
  close(reader);
}

class TerminalOfCaller : public Terminal {
protected:
  void SetUp() override
  {
    if (getuid() != 0)
      GTEST_SKIP() << "needs root";
  }
  const char* write_as_operator(const std::string& path) const
  {
    const caller_scope scope(&operator_);
    return terminal_write(path, "THEIRS");
  }

  caller operator_{operator_id, operator_group, {further_group}};
};

TEST_F(TerminalOfCaller, IsWrittenWithTheirRightsAlone)
{
  for (const std::string& theirs : {file("user", operator_id, 0, 0200), file("group", 0, operator_group, 0020),
                                    file("further", 0, further_group, 0020), file("all", 0, 0, 0002)}) {
    EXPECT_EQ(write_as_operator(theirs), nullptr) << theirs;
    EXPECT_EQ(file_text(theirs), "THEIRSwas") << theirs;
  }
  for (const std::string& ours : {file("ours", 0, 0, 0664), file("other", operator_id + 1, operator_id, 0660)}) {
    EXPECT_STREQ(write_as_operator(ours), not_opened) << ours;
    EXPECT_EQ(file_text(ours), "as it was") << ours;
  }
  const std::string hidden = file("hidden", operator_id, 0, 0600);
  chmod(folder_.c_str(), 0700);
  EXPECT_STREQ(write_as_operator(hidden), not_opened);
  EXPECT_EQ(file_text(hidden), "as it was");
}

TEST_F(TerminalOfCaller, ThoseWhoCannotBeToldWriteNothingAndRootEverything)
{
  const std::string path = file("file", 0, 0, 0600);
  {
    const caller_scope scope(nullptr);
    EXPECT_STREQ(terminal_write(path, "text"), not_opened);
    EXPECT_STREQ(terminal_write("/dev/null", "text"), not_opened);
  }
  const caller root{0, 0, {}};
  const caller_scope scope(&root);
  EXPECT_EQ(terminal_write(path, "ROOT'S"), nullptr);
  EXPECT_EQ(file_text(path), "ROOT'Swas");
}

// Ways round the permissions of a file: by what the process has open, and where the kernel asks for user 0 or for a
// capability instead.
TEST_F(TerminalOfCaller, TheProcesssOwnFilesAndTerminalAreOutOfReach)
{
  const std::string path = file("open", 0, 0, 0666);
  const int fd = open(path.c_str(), O_WRONLY);
  chmod(folder_.c_str(), 0700);  // there is no other way to it
  for (const std::string& way : {"/proc/self/fd/" + std::to_string(fd), "/dev/fd/" + std::to_string(fd),
                                 "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd),
                                 std::string("/proc/self/fd/0"), std::string("/dev/stderr")})
    EXPECT_STREQ(write_as_operator(way), not_opened) << way;
  EXPECT_EQ(file_text(path), "as it was");
  close(fd);
  // The text is no number, so it changes nothing where it does get through.
  const std::string setting = "/proc/sys/vm/swappiness";
  if (const char* error = terminal_write(setting, "text"); error && std::string(error) == not_written) {
    EXPECT_STREQ(write_as_operator(setting), not_opened);
  }
}

TEST_F(TerminalOfCaller, TheControllingTerminalIsTheProcesssOwn)
{
  int master = -1, slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  const pid_t session = fork();
  if (session == 0) {
    setsid();
    ioctl(slave, TIOCSCTTY, 0);
    const int own = open("/dev/tty", O_WRONLY);
    _exit(own < 0 ? 2 : write_as_operator("/dev/tty") == nullptr);
  }
  int status = -1;
  waitpid(session, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: it was written, 2: there was none";
  close(slave);
  close(master);
}

TEST_F(TerminalOfCaller, LeavesTheProcessAsItIs)
{
  const auto state = [] {
    std::ostringstream all;
    for (std::string line; const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
      for (std::ifstream status(task.path() / "status"); std::getline(status, line);)
        if (line.starts_with("Cap") || line.starts_with("Uid") || line.starts_with("Gid") || line.starts_with("Groups"))
          all << line << "\n";
    all << "dumpable " << prctl(PR_GET_DUMPABLE) << " descriptors " << entries("/proc/self/fd");
    return all.str();
  };
  const std::string before = state();
  write_as_operator("/dev/null");
  write_as_operator("/etc/shadow");
  EXPECT_EQ(state(), before);
}

// A file system whose server never answers, not even to the first question.
class TerminalThatHangs : public TerminalOfCaller {
protected:
  void SetUp() override
  {
    device_ = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options = "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
    if (getuid() != 0 || device_ < 0 || unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("hangs", folder_.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0)
      GTEST_SKIP() << "needs root and FUSE";
  }
  void TearDown() override
  {
    umount2(folder_.c_str(), MNT_DETACH);
    close(device_);
  }

  int device_ = -1;
};

TEST_F(TerminalThatHangs, IsGivenUpAndItsUserRefusedForAWhile)
{
  EXPECT_EQ(write_as_operator("/dev/null"), nullptr);
  EXPECT_STREQ(write_as_operator(folder_ / "file"), not_opened);
  EXPECT_STREQ(write_as_operator("/dev/null"), not_opened) << "the user who had it hang";
  EXPECT_EQ(terminal_write("/dev/null", "text"), nullptr) << "somebody else";
  // The child was killed; whichever call finds it ended waits for it.
  siginfo_t child{};
  while (waitid(P_ALL, 0, &child, WEXITED | WNOWAIT | WNOHANG) == 0)
    ASSERT_STREQ(write_as_operator("/dev/null"), not_opened);
  EXPECT_EQ(errno, ECHILD);
  EXPECT_STREQ(write_as_operator("/dev/null"), not_opened) << "its end shortens nothing";
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  clock_stand(CLOCK_MONOTONIC, now.tv_sec + 11);
  EXPECT_EQ(write_as_operator("/dev/null"), nullptr);
  clock_stand(CLOCK_MONOTONIC, 0);
}

}  // namespace
