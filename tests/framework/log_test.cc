#include "rte/BLL/core/log.h"
#include "rte/BLL/core/sys_log.h"

#include "tests/support/syslog_capture.h"
#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct keptLines_t : LogImpl {
  void writeMessageToLog(const logData_t& data) override { lines.push_back({data.msgLevel, data.buffer}); }
  std::vector<std::pair<int, std::string>> lines;
};

struct FrameworkLog : testing::Test {
  FrameworkLog() { log.reset(&kept); }
  std::string stamped(const std::string& text) const { return "[" + std::to_string(gettid()) + "] " + text; }
  Log log;
  keptLines_t kept;
};

using testLine_t = std::pair<int, std::string>;

TEST_F(FrameworkLog, LinesAreHandedOverAtTheirNewlines)
{
  log.setMsgLevel(LogImpl::notice);
  log << "a" << static_cast<const char*>(nullptr) << 7 << std::string("\nb\n\nc");
  EXPECT_EQ(kept.lines, (std::vector<testLine_t>{{2, stamped("a7\n")}, {2, stamped("b\n")}, {2, stamped("\n")}}));
  log.setMsgLevel(LogImpl::warning);
  log << "\n";
  EXPECT_EQ(kept.lines.back(), (testLine_t{1, stamped("c\n")}))
      << "the rest waits for its newline, at the level of then";
}

TEST_F(FrameworkLog, AThreadStartsAtLevelCriticalAndDebugIsDropped)
{
  log << "unlevelled\n";
  log.setMsgLevel(LogImpl::debug);
  log << "dropped\n" << 1;
  log.setMsgLevel(LogImpl::notice);
  log << "kept\n";
  EXPECT_EQ(kept.lines, (std::vector<testLine_t>{{0, stamped("unlevelled\n")}, {2, stamped("kept\n")}}));
  log.setLogLevel(LogImpl::notice);
  log << "now dropped too\n";
  EXPECT_EQ(kept.lines.size(), 2u);
}

TEST_F(FrameworkLog, ALongLineIsCutIntoPieces)
{
  log.setMsgLevel(LogImpl::notice);
  log << std::string(2500, 'x');
  ASSERT_EQ(kept.lines.size(), 2u);
  std::ostringstream note;
  note << " [--- Log has flushed the buffer for thread " << boost::this_thread::get_id() << "]\n";
  EXPECT_EQ(kept.lines[0].second, stamped(std::string(1000, 'x') + note.str()));
  EXPECT_EQ(kept.lines[1], kept.lines[0]);
  log << "\n";
  EXPECT_EQ(kept.lines[2].second, stamped(std::string(500, 'x') + "\n"));

  const size_t stamp = stamped("").size();
  log << std::string(999 - stamp, 'y');
  EXPECT_EQ(kept.lines.size(), 3u) << "999 characters with the stamp still wait";
  log << "yy";
  EXPECT_EQ(kept.lines.at(3).second, stamped(std::string(1001 - stamp, 'y') + note.str()));
}

TEST_F(FrameworkLog, TheOverrideForcesOneLevel)
{
  std::ostringstream said;
  log.setDebugLevel(&said, LogImpl::warning, true);
  log.setMsgLevel(LogImpl::debug);
  log << "forced\n";
  log.setDebugLevel(&said, LogImpl::debug, true);
  log.setMsgLevel(LogImpl::critical);
  log << "silenced\n";
  log.setDebugLevel(&said, static_cast<LogImpl::logLevel_t>(7), true);
  log.setDebugLevel(nullptr, LogImpl::debug, true);
  log.setDebugLevel(&said, LogImpl::debug, false);
  log.setMsgLevel(LogImpl::notice);
  log << "free\n";
  EXPECT_EQ(kept.lines, (std::vector<testLine_t>{{1, stamped("forced\n")}, {2, stamped("free\n")}}));
  EXPECT_EQ(said.str(), "Debug level set to Warning(1)\nDebug level set to Debug(3)\n"
                        "Debug level set to unknown(7)\nDebug level disabled\n");
}

TEST_F(FrameworkLog, ThreadsKeepTheirOwnLinesAndLevels)
{
  log.setMsgLevel(LogImpl::notice);
  log << "main ";
  int other = 0;
  std::thread([&] {
    other = gettid();
    log.setMsgLevel(LogImpl::warning);
    log << "other\n"
        << "left behind by a thread that ends";
  }).join();
  std::thread([&] { log << "anew\n"; }).join();  // may well get the identity of the one before
  log << "goes on\n";
  ASSERT_EQ(kept.lines.size(), 3u);
  EXPECT_EQ(kept.lines[0], (testLine_t{1, "[" + std::to_string(other) + "] other\n"}));
  EXPECT_EQ(kept.lines[1].first, 0);
  EXPECT_EQ(kept.lines[1].second.find("left behind"), std::string::npos);
  EXPECT_EQ(kept.lines[2], (testLine_t{2, stamped("main goes on\n")}));
}

TEST(FrameworkLogAlone, WithoutABackEndNothingHappens)
{
  Log log;
  std::ostringstream said;
  log.setMsgLevel(LogImpl::critical);
  log << "lost\n" << 1;
  log.setDebugLevel(&said, LogImpl::debug, true);
  EXPECT_EQ(said.str(), "");
  keptLines_t kept;
  log.reset(&kept);
  log << "first\n";
  ASSERT_EQ(kept.lines.size(), 1u);
  log.reset(nullptr);
  log << "lost\n";
  EXPECT_EQ(kept.lines.size(), 1u);
}

TEST(SysLog, WritesTabsAsBlanksAtThePriorityOfTheLevel)
{
  SysLog backEnd;
  syslog_take();
  for (const int level : {0, 1, 2, 3, 9})
    backEnd.writeMessageToLog({level, "\ta\tb\n", 1});
  backEnd.writeMessageToLog({1, "", 1});
  std::vector<int> priorities;
  for (const syslog_line& line : syslog_take()) {
    EXPECT_EQ(line.text, "    a    b\n");
    priorities.push_back(line.priority);
  }
  EXPECT_EQ(priorities, (std::vector<int>{2, 4, 5, 7, 2}));
}

}  // namespace
