// A tool that is killed while it applies a file: applying it again ends where it would have ended undisturbed.
// KILLS=100 for more than the few of a common test run.
#include "tests/tools/request_relay.h"
#include "tests/tools/running_agent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace {

constexpr char one_card[] = R"(init
bridge add br0 12
bridge vlan set br0 5 on
vlan add br0 5
vlan name set br0 5 five
port add br0 1 line1 one --type eth --location panel=a,panel-kind=1,reserved=1
port trust set br0 1 untrusted
port state set br0 1 subscriber
port remote-id set br0 1 C-1
port-vlan circuit-id-mode set br0 1 5 custom
port add br0 2 line2 two --type eth --kind 3
port description set br0 2 here
port add br0 3 line3 three
port add br0 9 uplink up --kind 1
port state set br0 9 network
)";

// Each way to change: set, renamed where it does not show, added again for its kind, moved, taken away.
constexpr char other_card[] = R"(init
log level set notice
bridge add br0 12
bridge max-pdu set br0 1400
bridge vlan set br0 7 on
vlan add br0 7
vlan name set br0 7 seven
port add br0 4 line4 four --type atm --parent 1 --location pvc=7,reserved=9
port pvc set br0 4 8 35
port trust set br0 4 untrusted
port state set br0 4 subscriber
port-vlan circuit-id-format set br0 4 7 '$PORT'
port add br0 1 line1 one --type eth --location panel=a,panel-kind=0,reserved=2
port trust set br0 1 untrusted
port state set br0 1 subscriber
port remote-id set br0 1 C-2
port-vlan circuit-id-mode set br0 1 5 ethernet
port-vlan remote-id-format set br0 1 7 '$PORT'
port add br0 2 line2 two --type eth --kind 5
port description set br0 2 there
port cpe-serial set br0 2 SN
port add br0 9 uplink up --kind 1
port state set br0 9 any
port add br0 5 c d --type gem --location onu=1,gem=2,pvc=3
)";

class ApplyKilled : public testing::Test {
protected:
  ApplyKilled() : relay_(agent_.socket())
  {
    std::ofstream(one_) << one_card;
    std::ofstream(other_) << other_card;
  }
  ~ApplyKilled() override
  {
    unlink(one_.c_str());
    unlink(other_.c_str());
  }

  int apply(const std::string& file) { return ctl(relay_.socket(), {"apply", file}).status; }
  outcome save() { return ctl(relay_.socket(), {"save"}); }

  struct card {
    std::string file;
    size_t requests;  // that it takes to come to it from the other
    std::string saved;
  };

  card undisturbed(const std::string& file)
  {
    EXPECT_EQ(apply(file), 0);
    const size_t requests = relay_.count();
    const outcome saved = save();
    EXPECT_EQ(saved.status, 0) << saved.err;
    return {file, requests, saved.out};
  }

  // Comes to the card, is killed that many requests before the end, and comes to it again.
  void kill_and_apply_again(const card& to, size_t before_the_end, bool done)
  {
    relay_.kill_at(to.requests - before_the_end, done);
    EXPECT_EQ(apply(to.file), 128 + SIGKILL) << before_the_end;
    relay_.kill_at(0, false);
    EXPECT_EQ(apply(to.file), 0) << before_the_end;
    const outcome saved = save();
    EXPECT_EQ(saved.status, 0) << before_the_end << done << saved.err;
    EXPECT_EQ(saved.out, to.saved) << before_the_end << done;
  }

  running_agent agent_;
  request_relay relay_;
  const std::string one_ = fresh_socket() + ".conf";
  const std::string other_ = fresh_socket() + ".conf";
};

TEST_F(ApplyKilled, IsMadeGoodByApplyingAgain)
{
  ASSERT_EQ(apply(one_), 0);
  const card other = undisturbed(other_);
  const card one = undisturbed(one_);
  // The requests that change something are the last ones; those before only read, and probe the ports.
  constexpr size_t places = 25;
  const char* kills = std::getenv("KILLS");
  const size_t step = std::max<size_t>(1, 4 * places / (kills ? std::strtoul(kills, nullptr, 10) : 20));
  for (const bool done : {false, true})
    for (size_t before_the_end = 0; before_the_end < places && !HasFailure(); before_the_end += step) {
      kill_and_apply_again(other, before_the_end, done);
      kill_and_apply_again(one, before_the_end, done);
    }
}

}  // namespace
