// How formats are read, and what is told of lines: against the agent's own answers.
#include "tests/tools/running_agent.h"
#include "tools/pppoeiactl/format/format_reading.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> written(const format_reading& reading)
{
  std::vector<std::string> texts;
  for (const format_piece& piece : reading.pieces)
    texts.push_back((piece.is_macro ? "M:" : "T:") + piece.text);
  return texts;
}

TEST(FormatReading, PartsTextAndMacros)
{
  EXPECT_THAT(written(format_read("US$ $$z3PORT_REM$hVLAN.")),
              ElementsAre("T:US$ $", "M:$z3PORT", "T:_REM", "M:$hVLAN", "T:."));
  EXPECT_THAT(written(format_read("")), ElementsAre());
  EXPECT_TRUE(format_read("$hVLAN").makes_bytes());
  EXPECT_FALSE(format_read("$hSHELF").makes_bytes());
}

TEST(FormatReading, TellsWhyItEnds)
{
  const auto end = [](const char* format) { return format_read(format).end_reason; };
  EXPECT_EQ(end("$PORT x"), "no further macro");
  EXPECT_EQ(end("$PORT PORT"), "the name PORT at 6 has no \"$\" before it");
  EXPECT_EQ(end("PORT"), "the name PORT at 0 has no \"$\" before it");
  EXPECT_EQ(end("a $x3VLAN"),
            "the options of VLAN at 2 cannot be read: Invalid number of characters or unexpected character!");
  EXPECT_THAT(end("$sPORT"), HasSubstr("Number of characters should follow"));
  EXPECT_THAT(end("$hhVLAN"), HasSubstr("Duplicate hex option"));
}

TEST(FormatReading, TellsWhatIsCarriedOver)
{
  const format_reading reading = format_read("$z3PORT$zCHASSIS$d-CLNT_MAC$dCPE_MAC$z4CHASSIS");
  EXPECT_FALSE(reading.pieces[0].number_carried);
  EXPECT_TRUE(reading.pieces[1].number_carried);
  EXPECT_FALSE(reading.pieces[2].delimiter_carried);
  EXPECT_TRUE(reading.pieces[3].delimiter_carried);
  EXPECT_FALSE(reading.pieces[4].number_carried);
}

TEST(FormatReading, TellsWhyAMacroStays)
{
  const auto stays = [](const char* format) { return format_read(format).pieces.at(0).stays; };
  EXPECT_EQ(stays("$PORT"), "");
  EXPECT_EQ(stays("$TCONT"), "has no source of values");
  EXPECT_EQ(stays("$HEX"), "no digits stand before the name");
  EXPECT_EQ(stays("$xyHEX"), "not hexadecimal digits");
  EXPECT_EQ(stays("$zPORT"), "padding needs a number of characters");
  EXPECT_EQ(stays("$0PORT"), "the number of characters is zero");
  EXPECT_EQ(stays("$hSHELF"), "\"h\" is for numbers and addresses");
  EXPECT_EQ(stays("$d:SYSNAME"), "only MAC and IP addresses take a delimiter");
  EXPECT_EQ(stays("$z3CLNT_MAC"), "MAC and IP addresses are not padded to a number");
  EXPECT_EQ(stays("$100SYSNAME"), "more than 99 characters");
}

class Lines : public testing::Test {
protected:
  Lines()
  {
    configure(R"(init
bridge add br0 8
bridge sysname set br0 AN12
format remote-id set br0 $PORT_REM_ID
port add br0 1 line1 0/1 --type eth
port add br0 2 line2 0/2 --type eth
port add br0 3 uplink up --kind 1
port state set br0 3 network
port remote-id set br0 1 C-1
port remote-id set br0 2 C-2
)");
  }

  void configure(const std::string& lines)
  {
    const outcome result = agent.batch(lines);
    EXPECT_EQ(result.status, 0) << result.err;
  }

  nlohmann::json json(std::vector<std::string> command)
  {
    command.insert(command.begin(), "--json");
    return agent.ctl(command).json();
  }

  // "finding identifier ports", in order.
  std::vector<std::string> findings()
  {
    std::vector<std::string> list;
    const nlohmann::json checked = json({"format", "check", "br0"});
    for (const nlohmann::json& found : checked["findings"]) {
      std::string text = found["finding"].get<std::string>() + " " + found["identifier"].get<std::string>();
      for (const nlohmann::json& line : found["lines"])
        text += " " + line["port"].dump() + "/" + line["vlan"].dump();
      list.push_back(text + (found["cause"] == "" ? "" : " " + found["cause"].get<std::string>()));
    }
    return list;
  }

  running_agent agent;
};

TEST_F(Lines, ExplainFollowsModeAndFormat)
{
  configure("port-vlan circuit-id-format set br0 1 100 '$SYSNAME $hz2VLAN'\n"
            "port circuit-id-mode set br0 1 custom\n");
  nlohmann::json line = json({"explain", "br0", "1", "100"});
  EXPECT_EQ(line["circuit-id-mode_name"], "unset");  // the entry's, although it was never set
  EXPECT_EQ(line["circuit-id-mode-from"], "port-vlan");
  EXPECT_EQ(line["circuit-id"], "");
  configure("port-vlan circuit-id-mode set br0 1 100 custom\n");
  line = json({"explain", "br0", "1", "100"});
  EXPECT_EQ(line["circuit-id-format-from"], "port-vlan");
  EXPECT_EQ(line["circuit-id"], "AN12 0064");
  EXPECT_EQ(line["circuit-id-bytes"], "414e3132200064");
  EXPECT_EQ(line["circuit-id-length"], 7);
  EXPECT_EQ(line["remote-id-format-from"], "bridge");
  EXPECT_EQ(line["remote-id"], "C-1");
  line = json({"explain", "br0", "1", "101"});
  EXPECT_EQ(line["circuit-id-mode-from"], "port");
  EXPECT_EQ(line["circuit-id-format-from"], "none");
  configure("port-vlan circuit-id-mode set br0 1 4196 atm\nport-vlan circuit-id-mode set br0 1 8191 atm\n");
  EXPECT_EQ(json({"explain", "br0", "1", "4196"})["circuit-id-mode-from"], "port-vlan");
  EXPECT_EQ(json({"explain", "br0", "1", "8191"})["circuit-id-mode-from"], "port");
}

TEST_F(Lines, FormatsOfAVlanBringTheirMode)
{
  configure("format set br0 1 100 --circuit-id '$SYSNAME $VLAN' --remote-id=$PORT\n");
  nlohmann::json line = json({"explain", "br0", "1", "100"});
  EXPECT_EQ(line["circuit-id"], "AN12 100");
  EXPECT_EQ(line["remote-id"], "1");
  configure("format set br0 1 100 --circuit-id '' --remote-id '' --mode unset\n");
  EXPECT_EQ(json({"show", "port-vlan", "br0", "1"})["port-vlans"], nlohmann::json::array());
  EXPECT_EQ(agent.ctl({"format", "set", "br0", "1", "100"}).status, 2);
  EXPECT_EQ(agent.ctl({"format", "set", "br0", "1", "100", "--circuit-id", std::string(130, 'x')}).status, 2);
  EXPECT_EQ(agent.ctl({"format", "explain", std::string(130, 'x')}).status, 2);
  EXPECT_EQ(json({"show", "port-vlan", "br0", "1"})["port-vlans"], nlohmann::json::array());  // nothing was half done
}

TEST_F(Lines, ExplainTellsWhatIsCut)
{
  configure("port circuit-id-mode set br0 1 custom\nformat circuit-id set br0 '$z60PORT.$PORT'\n");
  EXPECT_EQ(json({"explain", "br0", "1", "5"})["circuit-id-cut"], false);
  configure("format circuit-id set br0 '$z62PORT.$PORT'\n");
  EXPECT_EQ(json({"explain", "br0", "1", "5"})["circuit-id-cut"], true);
  configure("format circuit-id set br0 '$z62PORT.$hPORT'\n");  // 64 bytes, 65 characters
  const nlohmann::json line = json({"explain", "br0", "1", "5"});
  EXPECT_EQ(line["circuit-id-cut"], true);
  EXPECT_EQ(line["circuit-id-length"], 63);
}

TEST_F(Lines, ExplainGoesByTheRulesAndNotByTheLastFrame)
{
  configure("bridge vlan set br0 7 on\nbridge shelf-id set br0 S1\n");
  const auto id = [&](const char* vlan, const char* cvid) {
    return json({"explain", "br0", "1", vlan, cvid})["circuit-id"].get<std::string>();
  };
  EXPECT_EQ(id("7", "none"), "VELTRONA:S1 eth 0/0/1:7");
  EXPECT_EQ(id("7", "9"), "VELTRONA:S1 eth 0/0/1:7");
  EXPECT_EQ(json({"explain", "br0", "1", "7"})["circuit-id-of-frame"], nlohmann::json::array());
  EXPECT_EQ(json({"explain", "br0", "1", "8"})["vlan-enabled"], false);
  configure("bridge circuit-id-cvlan set br0 on\nbridge insert-circuit-id set br0 off\n");
  EXPECT_EQ(id("7", "9"), "VELTRONA:S1 eth 0/0/1:7:9");
  EXPECT_EQ(id("7", "none"), "VELTRONA:S1 eth 0/0/1:7");
  EXPECT_EQ(json({"explain", "br0", "1", "7"})["circuit-id-of-frame"], nlohmann::json::array({"CVID"}));
  EXPECT_EQ(json({"explain", "br0", "1", "7"})["circuit-id-inserted"], false);
  configure("port name update br0 1 0123456789abcd\nbridge shelf-id set br0 012345678901234567890123456789abcdef\n");
  EXPECT_EQ(id("7", "9").size(), 63u);
  configure("port circuit-id-mode set br0 1 custom\nformat circuit-id set br0 '$hz2CVID-$CVID $CLNT_MAC'\n");
  EXPECT_THAT(id("5", "9"), HasSubstr("0009-9 "));
  EXPECT_EQ(json({"explain", "br0", "1", "5"})["circuit-id-of-frame"], nlohmann::json::array({"CVID", "CLNT_MAC"}));
}

TEST_F(Lines, FormatExplainExpandsOnALine)
{
  const nlohmann::json told = json({"format", "explain", "$z3PORT/$zCHASSIS-$0a0bHEX PORT", "br0", "2", "7", "9"});
  EXPECT_EQ(told["result"], "002/99-0A0B PORT");
  EXPECT_EQ(told["result-bytes"], "3030322f39392d0a0b20504f5254");
  EXPECT_EQ(told["pieces"][2]["result"], "99");
  EXPECT_EQ(told["pieces"][2]["number-carried-over"], true);
  EXPECT_EQ(told["end"], 26);
  EXPECT_EQ(json({"format", "explain", "$VLAN.$CVID", "br0", "2", "7", "9"})["result"], "7.9");
  EXPECT_EQ(ctl(fresh_socket(), {"format", "explain", "$PORT"}).status, 0);  // needs no agent
}

TEST_F(Lines, CheckFindsNothingWrongWithSoundFormats)
{
  configure("port circuit-id-mode set br0 1 custom\nport circuit-id-mode set br0 2 custom\n"
            "format circuit-id set br0 '$SYSNAME/$PORT:$VLAN.$CVID'\n"
            "port-vlan circuit-id-mode set br0 1 10 custom\nport-vlan circuit-id-mode set br0 1 20 custom\n");
  EXPECT_THAT(findings(), ElementsAre());
  EXPECT_EQ(json({"format", "check", "br0"})["lines"], 4);  // without the uplink
}

TEST_F(Lines, CheckFindsWhatMakesTrouble)
{
  configure("port circuit-id-mode set br0 1 custom\nport circuit-id-mode set br0 2 custom\n"
            "format circuit-id set br0 '$SYSNAME $VPI'\n"
            "port-vlan circuit-id-mode set br0 1 10 custom\n"
            "port-vlan circuit-id-format set br0 1 10 'port $hz2PORT'\n"
            "port-vlan remote-id-format set br0 1 10 '$z99PORT'\n"
            "port-vlan remote-id-format set br0 2 20 '$CONTACT'\n");
  EXPECT_THAT(findings(),
              ElementsAre("no-value circuit-id 1/4095 2/4095 VPI", "zero-byte circuit-id 1/10 port $hz2PORT",
                          "cut remote-id 1/10 $z99PORT", "empty circuit-id 2/20", "empty remote-id 2/20",
                          "no-value remote-id 2/20 CONTACT", "shared circuit-id 1/4095 2/4095"));
  EXPECT_EQ(agent.ctl({"format", "check", "br0"}).status, 7);
}

TEST_F(Lines, CheckFindsWhatAnOperatorMeansByWrong)
{
  configure("port circuit-id-mode set br0 1 custom\nport circuit-id-mode set br0 2 custom\n"
            "port add br0 4 atm4 0/4 --type atm\nport circuit-id-mode set br0 4 atm\nport remote-id set br0 4 C-4\n"
            "format circuit-id set br0 '$SYSNAM $PORT_REM'\n");
  EXPECT_THAT(findings(), ElementsAre("unknown-macro circuit-id 1/4095 2/4095 $SYSNAM",
                                      "unknown-macro circuit-id 1/4095 2/4095 $PORT_REM", "no-pvc circuit-id 4/4095"));
  configure("port pvc set br0 4 8 35\nformat circuit-id set br0 '$zPORT $TCONT VLAN $PORT'\n");
  EXPECT_THAT(findings(), ElementsAre(HasSubstr("$zPORT stays as it is written: padding needs a number"),
                                      HasSubstr("$TCONT stays as it is written"), HasSubstr("unread circuit-id"),
                                      HasSubstr("shared")));
  configure("format circuit-id set br0 '$PORT $a0z9ZAP_X: $A $ZZ- $0'\n");
  EXPECT_THAT(findings(), ElementsAre("unknown-macro circuit-id 1/4095 2/4095 $a0z9ZAP_X",
                                      "unknown-macro circuit-id 1/4095 2/4095 $ZZ"));
  configure("format circuit-id set br0 '$SYSNAME $CLNT_MAC'\n");  // tells the lines apart when frames come
  EXPECT_THAT(findings(), ElementsAre());
  EXPECT_EQ(agent.ctl({"format", "check", "br0"}).status, 0);
  for (int vlan = 1; vlan <= 5; ++vlan)
    configure("port-vlan remote-id-format set br0 1 " + std::to_string(vlan) + " $CONTACT\n");
  const std::string six = "port 1 VLAN 1, port 1 VLAN 2, port 1 VLAN 3, port 1 VLAN 4, port 1 VLAN 5, port 2 VLAN 9";
  configure("port-vlan remote-id-format set br0 2 9 $CONTACT\n");
  EXPECT_THAT(agent.ctl({"format", "check", "br0"}).out, HasSubstr(six + ": remote-id $CONTACT has no value\n"));
  configure("port-vlan remote-id-format set br0 4 9 $CONTACT\n");
  EXPECT_THAT(agent.ctl({"format", "check", "br0"}).out,
              HasSubstr(six + " and 1 more: remote-id $CONTACT has no value\n"));
}

}  // namespace
