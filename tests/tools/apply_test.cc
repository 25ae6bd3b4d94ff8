// "check", "diff", "apply", "confirm" on an agent: what is done, what is left alone, what is undone.
#include "tests/tools/running_agent.h"
#include "tests/tools/whole_card.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using words = std::vector<std::string>;

// A line and an uplink, with nothing to complain of.
constexpr char small_card[] = R"(init
bridge add br0 10
bridge vlan set br0 5 on
bridge vlan set br0 100 on
vlan add br0 5
format remote-id set br0 "$PORT_REM_ID"
port add br0 9 uplink up --kind 1
port state set br0 9 network
port add br0 1 line1 1 --type eth
port trust set br0 1 untrusted
port state set br0 1 subscriber
port remote-id set br0 1 C-1
port-vlan circuit-id-mode set br0 1 5 custom
port add br0 2 line2 2 --type eth
port trust set br0 2 untrusted
port state set br0 2 subscriber
)";

// A file of commands.
class card_text_file {
public:
  explicit card_text_file(const std::string& text) : path_(fresh_socket() + ".conf") { std::ofstream(path_) << text; }
  ~card_text_file() { unlink(path_.c_str()); }
  card_text_file(const card_text_file&) = delete;
  card_text_file& operator=(const card_text_file&) = delete;

  const std::string& path() const { return path_; }

private:
  std::string path_;
};

outcome applied(const running_agent& agent, const std::string& card, words options = {})
{
  const card_text_file file(card);
  options.insert(options.begin(), {"--json", "apply"});
  options.push_back(file.path());
  return agent.ctl(options);
}

words commands_of(const outcome& result)
{
  return result.json()["commands"].get<words>();
}

std::string card_of(const running_agent& agent)
{
  return agent.told({"save"}) + agent.told({"show", "--json"});
}

TEST(Apply, MakesWhatABatchMakesAndThenNothing)
{
  for (const char* card : {changed_card, whole_card}) {
    running_agent by_batch;
    const outcome made = by_batch.batch(card);
    ASSERT_EQ(made.status, 0) << made.err;
    running_agent by_apply;
    EXPECT_THAT(commands_of(applied(by_apply, card)), Not(ElementsAre()));
    EXPECT_EQ(card_of(by_apply), card_of(by_batch));
    if (card == changed_card)
      continue;  // the other has all that is read back
    for (const running_agent* agent : {&by_apply, &by_batch}) {
      const std::string saved = agent->told({"save"});
      EXPECT_THAT(commands_of(applied(*agent, card)), ElementsAre());
      EXPECT_THAT(commands_of(applied(*agent, saved)), ElementsAre());
      EXPECT_EQ(agent->told({"save"}), saved);
    }
  }
}

TEST(Apply, ChangesWhatDiffersAndTakesAwayLast)
{
  running_agent agent;
  ASSERT_EQ(applied(agent, small_card).status, 0);
  const std::string other = R"(init
bridge add br0 10
bridge vlan set br0 7 on
bridge vlan set br0 100 on
format remote-id set br0 "$PORT_REM_ID"
port add br0 1 line1 "new name" --type eth
port trust set br0 1 untrusted
port state set br0 1 subscriber
port remote-id set br0 1 C-2
port add br0 2 line2 2 --type atm
port trust set br0 2 untrusted
port state set br0 2 subscriber
)";
  const words expected{"bridge vlan set br0 7 on",
                       "port name update br0 1 \"new name\"",
                       "port remote-id set br0 1 C-2",
                       "port del br0 2",
                       "port add br0 2 line2 2 --type atm",
                       "port trust set br0 2 untrusted",
                       "port state set br0 2 subscriber",
                       "port circuit-id-mode set br0 2 ethernet",
                       "port-vlan del br0 1 5",
                       "port del br0 9",
                       "vlan del br0 5",
                       "bridge vlan set br0 5 off"};
  const card_text_file file(other);
  EXPECT_EQ(agent.ctl({"--json", "diff", file.path()}).status, 7);
  EXPECT_EQ(commands_of(applied(agent, other, {"--dry-run"})), expected);
  EXPECT_THAT(commands_of(applied(agent, small_card)), ElementsAre());
  const outcome kept = applied(agent, other, {"--keep"});
  EXPECT_EQ(commands_of(kept), words(expected.begin(), expected.begin() + 8));
  EXPECT_EQ(commands_of(applied(agent, other)), words(expected.begin() + 8, expected.end()));
  EXPECT_THAT(commands_of(applied(agent, other)), ElementsAre());
}

TEST(Apply, AddsABridgeAgainForItsSlots)
{
  running_agent agent;
  ASSERT_EQ(applied(agent, small_card).status, 0);
  std::string other = small_card;
  other.replace(other.find("br0 10"), 6, "br0 20");
  EXPECT_THAT(commands_of(applied(agent, other)), testing::IsSupersetOf({"bridge del br0", "bridge add br0 20"}));
  EXPECT_THAT(agent.told({"save"}), HasSubstr("bridge add br0 20\n"));
  EXPECT_THAT(commands_of(applied(agent, other)), ElementsAre());
}

// Neither its device nor its file are on this host, and its name is none that is looked for.
TEST(Apply, FindsABridgeThatOnlyTheFileNames)
{
  running_agent agent;
  const std::string card = "init\nbridge add hidden 4\nbridge vlan set hidden 7 on\n";
  EXPECT_THAT(commands_of(applied(agent, card)), Not(ElementsAre()));
  unlink((agent.socket() + ".known").c_str());
  EXPECT_THAT(commands_of(applied(agent, card)), ElementsAre());
}

// The kernel has br0 to br15.
TEST(Apply, UndoesWhatWasDoneBeforeARefusal)
{
  running_agent agent;
  ASSERT_EQ(applied(agent, small_card).status, 0);
  const std::string before = card_of(agent);
  const std::string other = std::string(small_card) + "port remote-id set br0 1 other\nbridge add br77 4\n";
  const outcome refused = applied(agent, other);
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(
      refused.err,
      HasSubstr(
          "the kernel has no bridge of that name ('ls /proc/net/kvbridge'); done before: 1 commands, undone by 1"));
  EXPECT_EQ(card_of(agent), before);
}

TEST(Apply, RefusesAFileThatABatchWouldNotGetThrough)
{
  running_agent agent;
  ASSERT_EQ(applied(agent, small_card).status, 0);
  const std::string before = card_of(agent);
  for (const char* wrong : {"", "bridge add br0 4\n", "init\nbridge add br0 4\nport trust set br0 1 untrusted\n"})
    EXPECT_EQ(applied(agent, wrong).status, 2) << wrong;
  EXPECT_EQ(agent.ctl({"apply", "/nonexistent"}).status, 2);
  EXPECT_EQ(agent.ctl({"apply", "/tmp"}).status, 2);
  EXPECT_EQ(card_of(agent), before);
}

// Kinds of ports have no getter. What somebody else adds is not known, and is said to be so.
TEST(Apply, KnowsWhatItGaveAndNotWhatOthersDid)
{
  running_agent agent;
  ASSERT_EQ(applied(agent, small_card).status, 0);
  EXPECT_THAT(agent.told({"save"}), HasSubstr("port add br0 9 uplink up --kind 1\n"));
  unlink((agent.socket() + ".known").c_str());
  outcome saved = agent.ctl({"save"});
  EXPECT_EQ(saved.status, 8);
  EXPECT_THAT(saved.err, HasSubstr("port 9 of br0: kind"));
  const outcome taken = applied(agent, small_card);
  EXPECT_THAT(taken.json()["assumed"].get<words>(), testing::Contains("kind of port 9 of br0"));
  EXPECT_THAT(commands_of(applied(agent, small_card, {"--renew"})),
              testing::IsSupersetOf({"port del br0 9", "port add br0 9 uplink up --kind 1"}));
  EXPECT_THAT(commands_of(applied(agent, small_card, {"--renew"})), ElementsAre());
}

TEST(Apply, GoesBackUnlessItIsConfirmed)
{
  running_agent agent;
  ASSERT_EQ(applied(agent, small_card).status, 0);
  const std::string before = agent.told({"save"});
  const std::string other = std::string(small_card) + "port remote-id set br0 1 other\n";
  EXPECT_EQ(agent.ctl({"confirm"}).status, 1);
  ASSERT_EQ(applied(agent, other, {"--confirm", "1"}).status, 0);
  EXPECT_EQ(applied(agent, small_card).status, 1) << "while that waits";
  for (int i = 0; i < 500 && agent.told({"save"}) != before; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(agent.told({"save"}), before);
  EXPECT_EQ(agent.ctl({"confirm"}).status, 1);

  outcome again;
  for (int i = 0; i < 500 && (again = applied(agent, other, {"--confirm", "600"})).status != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(agent.ctl({"confirm"}).status, 0);
  EXPECT_EQ(agent.ctl({"confirm"}).status, 1);
  EXPECT_THAT(agent.told({"save"}), HasSubstr("remote-id set br0 1 other"));
}

TEST(Init, IsForAnAgentThatIsNotInitialised)
{
  running_agent agent;
  ASSERT_EQ(applied(agent, small_card).status, 0);
  for (const words& init : {words{"init"}, {"node", "init"}, {"-batch", "/dev/stdin"}}) {
    const outcome refused = ctl(agent.socket(), init, "init\n");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("initialised already"));
  }
  EXPECT_EQ(agent.ctl({"bridge", "state", "get", "br0"}).status, 0);
  EXPECT_EQ(agent.ctl({"init", "--force"}).status, 0);
  EXPECT_EQ(agent.ctl({"bridge", "state", "get", "br0"}).status, 1);
}

// No agent answers there.
outcome check(const std::string& card)
{
  const card_text_file file(card);
  return ctl(fresh_socket(), {"--json", "check", file.path()});
}

TEST(Check, NamesEachMistakeAtItsLine)
{
  constexpr struct {
    const char* line;  // behind a card with br0, its ports 1, 2 and 9
    int status;
    const char* text;
  } cases[] = {
      {"port state set br1 1 subscriber", 2, "bridge br1: no such bridge (bridges: br0)"},
      {"port state set br0 70 subscriber", 2, "port 70: br0 has ports 1 to 9"},
      {"port state set br0 3 subscriber", 2, "port 3: not added to br0 before this line"},
      {"bridge add br0 9", 2, "bridge br0: added before"},
      {"bridge add a-long-name 9", 2, "a name has 1 to 10 characters"},
      {"bridge vendor set br0 01234567890123456789", 2, "has 20 characters, at most 19"},
      {"vlan name set br0 9 x", 2, "vlan 9: not added to br0"},
      {"port pvc set br0 1 8 35", 2, "this one's is 'eth'"},
      {"port trust set br0 1 maybe", 2, "maybe"},
      {"bridge sate set br0 on", 2, "bridge"},
      {"format circuit-id set br0 '$SYSNAM'", 7, "'$SYSNAM'"},
      {"port trust set br0 1 trusted", 7, "port 1 of br0 is a subscriber's and trusted"},
      {"port state set br0 1 disabled", 7, "port 1 of br0 is disabled"},
      {"port add br0 4 an-interface-name x", 7, "port 4 of br0 is disabled"},
      {"port remote-id set br0 2 C-1", 7, "ports 1, 2 of br0 share the Remote ID 'C-1'"},
      {"port name update br0 2 1", 7, "ports 1, 2 of br0 share the Circuit ID '1:<VLAN>'"},
      {"port add br0 1 line1 x", 7, "changes nothing"},
      {"port name update br0 1 fourteen-chars", 0, ""},
      {"port name update br0 1 a-name-too-long-by-far", 7, "is cut to 14 characters: 'a-name-too-lon'"},
      {"bridge vlan set br0 4196 on", 7, "it switches VLAN 100"},
      {"port circuit-id-mode set br0 1 9", 7, "has no meaning"},
      {"port parent set br0 1 6", 7, "lies on port 6, which br0 does not have"},
      {"show", 7, "sets nothing that lasts"},
      {"bridge stats reset br0", 0, ""},
  };
  for (const auto& [line, status, text] : cases) {
    const outcome result = check(std::string(small_card) + line + "\n");
    EXPECT_EQ(result.status, status) << line << result.out;
    EXPECT_THAT(result.out, HasSubstr(nlohmann::json(text).dump().substr(1).substr(0, strlen(text)))) << line;
  }
  EXPECT_EQ(check(small_card).status, 0);
  EXPECT_EQ(check("bridge add br0 2\n").json()["findings"][0]["line"], 1);
}

}  // namespace
