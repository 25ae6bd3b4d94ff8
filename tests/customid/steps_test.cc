// Steps of the macro language by themselves, where no format leads: values of odd shape.
#include "pppoeia/customid/binary.h"
#include "pppoeia/customid/formatter.h"
#include "pppoeia/customid/parser.h"
#include "pppoeia/customid/vocabulary.h"

#include <gtest/gtest.h>
#include <limits>

namespace {

TEST(Parser, OutputsOfOneMacro)
{
  unsigned long begin = 0;
  std::string text;
  customIdFormat type{};
  char flags = 0x7f;
  std::string delimiter = "x";
  unsigned number = 42;
  std::string user;
  const auto next = [&](const char* format, unsigned long from) {
    return getNextMacroFormatString(format, from, begin, text, type, flags, delimiter, number, user);
  };
  EXPECT_TRUE(next("$$zAGENT_IPV4", 0));
  EXPECT_EQ(std::tie(begin, text, type, number, delimiter),
            std::make_tuple(1ul, std::string("$zAGENT_IPV4"), AGENT_IPV4, 42u, std::string("x")));
  EXPECT_EQ(flags, 0x04);
  EXPECT_TRUE(next("$s12SYSNAME", 0));
  EXPECT_EQ(std::make_pair(static_cast<int>(flags), number), std::make_pair(0x0a, 12u));
  EXPECT_TRUE(next("$PORT$0A1bHEX", 5));
  EXPECT_EQ(std::tie(begin, type, user), std::make_tuple(5ul, HEX, std::string("0A1b")));
  EXPECT_TRUE(next("$99999999999PORT", 0));
  EXPECT_EQ(number, 4294967295u);
  EXPECT_FALSE(next("$PORT", 6));
  EXPECT_FALSE(next("$PORT", 5));
}

TEST(Formatter, Ipv6Groups)
{
  using groups = std::vector<std::string>;
  groups parts;
  EXPECT_EQ(ipv6AddrStrToVector("2001:DB8::1", parts), 0);
  EXPECT_EQ(parts, (groups{"2001", "0DB8", "0000", "0000", "0000", "0000", "0000", "0001"}));
  EXPECT_EQ(ipv6AddrStrToVector("::", parts), 0);
  EXPECT_EQ(parts, groups(8, "0000"));
  EXPECT_EQ(ipv6AddrStrToVector("1:2:3:4:5:6:7::", parts), 0);
  EXPECT_EQ(parts.back(), "0000");
  EXPECT_EQ(ipv6AddrStrToVector("1:2:3", parts), 0);
  EXPECT_EQ(parts.size(), 3u);
  for (const char* malformed : {"1::2::3", ":::", "12345::", ":1:2:3:4:5:6:7", "1:2:3:4:5:6:7:", "g::", "::1.2.3.4",
                                "1:2:3:4::5:6:7:8", " ::1", ":"})
    EXPECT_NE(ipv6AddrStrToVector(malformed, parts), 0) << malformed;
}

TEST(Formatter, ValuesAsTheyAre)
{
  std::string out;
  EXPECT_TRUE(processMacroString("00:1a:2B:00:00:01", CLNT_MAC, 0x01, "", 0, out));
  EXPECT_EQ(out, "001a2B000001");
  EXPECT_TRUE(processMacroString("12345", PORT, 0x02, "", 3, out));
  EXPECT_EQ(out, "123");
  EXPECT_TRUE(processMacroString("99999999999", PORT, 0x01, "", 0, out));
  EXPECT_EQ(out, "ffffffff");
  EXPECT_FALSE(processMacroString("1:2:3", AGENT_IPV6, 0x10, "-", 0, out));
  EXPECT_FALSE(processMacroString("x", static_cast<customIdFormat>(29), 0x01, "", 0, out));
}

TEST(Binary, SegmentsOfOddLengthAndPastTheEnd)
{
  std::vector<unsigned char> out;
  EXPECT_TRUE(idStringToBinaryVector("a64zzb", {{1, 1}, {2, 2}, {3, 2}, {4, 0}}, out));
  EXPECT_EQ(out, (std::vector<unsigned char>{'a', 0x64, 0x00, 'b'}));
  EXPECT_FALSE(idStringToBinaryVector("647", {{0, 4}}, out));
  EXPECT_EQ(out.back(), 0x64);
  EXPECT_TRUE(idStringToBinaryVector("", {{0, 4}}, out));
}

}  // namespace
