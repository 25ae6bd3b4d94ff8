// Packets and the argument buffers that operations see.
#include "platform/ippc/dispatch.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using packet = std::vector<unsigned char>;

packet request_of(uint16_t id, const std::vector<std::string>& arguments)
{
  std::vector<const_bytes> views;
  for (const std::string& argument : arguments)
    views.emplace_back(reinterpret_cast<const unsigned char*>(argument.data()), argument.size());
  packet bytes;
  ippc::request_encode(id, 0x01020304, views, bytes);
  return bytes;
}

bool well_formed(const packet& bytes)
{
  ippc::request request;
  ippc::request_decode(bytes, request);
  return request.well_formed;
}

TEST(IppcWire, RequestIsLaidOutAsOthersExpect)
{
  const packet expected = {0x49, 0x50, 0x50, 0x43, 1, 0,   0x0a, 0,   4, 3, 2, 1, 2, 0, 0,
                           0,    4,    0,    0,    0, 'b', 'r',  '0', 0, 1, 0, 0, 0, 7};
  EXPECT_EQ(request_of(10, {std::string("br0\0", 4), "\x07"}), expected);
}

TEST(IppcWire, CutAnywhereOrLongerIsMalformed)
{
  const packet whole = request_of(10, {"abc", "", "x"});
  ASSERT_TRUE(well_formed(whole));
  for (size_t length = 0; length < whole.size(); ++length)
    EXPECT_FALSE(well_formed(packet(whole.begin(), whole.begin() + static_cast<long>(length)))) << length;
  packet longer = whole;
  longer.push_back(0);
  EXPECT_FALSE(well_formed(longer));
}

TEST(IppcWire, WrongFieldsAreMalformedAndNamedAsFarAsRead)
{
  for (const size_t at : {size_t{0}, size_t{4}, size_t{13}, size_t{15}}) {
    packet wrong = request_of(10, {"abc"});
    wrong[at] ^= 0xff;
    ippc::request request;
    ippc::request_decode(wrong, request);
    EXPECT_FALSE(request.well_formed) << at;
    EXPECT_EQ(request.function_id, 10);
    EXPECT_EQ(request.sequence, 0x01020304u);
    EXPECT_TRUE(request.arguments.empty());
  }
  EXPECT_FALSE(well_formed(request_of(1, {std::string(4097, 'a')})));
  std::vector<std::string> most(15, std::string(4096, 'a'));  // with one of 4008 more the reply fills a packet
  most.emplace_back(4008, 'a');
  EXPECT_TRUE(well_formed(request_of(1, most)));
  most.back() += 'a';
  EXPECT_FALSE(well_formed(request_of(1, most)));
}

// Looks at the buffers, writes over all of them, fails or not as told.
int32_t callback_status = 0;
int calls = 0;
int32_t scribble(ippcFuncData* request)
{
  ++calls;
  if (!ippcFuncDataIsValid(request))
    return -2;
  for (unsigned i = 0; i < request->argCount; ++i) {
    const ippcArg& argument = *request->args[i];
    auto* bytes = static_cast<unsigned char*>(argument.data);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % 8, 0u);
    for (size_t at = 0; at < IPPC_ARG_SLACK; ++at)
      EXPECT_EQ(bytes[argument.length + at], 0);
    if (callback_status == 0)
      std::memset(bytes, 'Z', argument.length + IPPC_ARG_SLACK);
  }
  const int32_t result = -22;
  if (callback_status == 0) {
    EXPECT_NE(ippcFuncDataAddRetVal(request, &result, 8), 0);
    EXPECT_EQ(ippcFuncDataAddRetVal(request, &result, 4), 0);
    EXPECT_NE(ippcFuncDataAddRetVal(request, &result, 4), 0);
  }
  return callback_status;
}

TEST(IppcDispatch, BuffersAreAlignedZeroedAndTravelBackAsLongAsTheyCame)
{
  const packet expected = {0x49, 0x50, 0x50, 0x43, 1, 0, 9, 0, 4,   3, 2, 1, 3, 1, 0, 0, 0, 0,   0,   0,  //
                           0xea, 0xff, 0xff, 0xff, 1, 0, 0, 0, 'Z', 0, 0, 0, 0, 4, 0, 0, 0, 'Z', 'Z', 'Z', 'Z'};
  ippc::dispatch dispatch(scribble);
  callback_status = 0;
  for (int round = 0; round < 2; ++round)  // the second sees nothing of the first
    EXPECT_EQ(dispatch.run(request_of(9, {"a", "", "four"})), expected);
  for (size_t length = 0; length < expected.size(); ++length)
    EXPECT_FALSE(ippc::reply_decode(const_bytes(expected).first(length))) << length;
  const packet longest = dispatch.run(request_of(9, std::vector<std::string>(255, "x")));
  EXPECT_EQ(ippc::reply_decode(longest)->arguments.size(), 255u);
}

TEST(IppcDispatch, RefusedRequestsBringTheirArgumentsBackMalformedOnesNone)
{
  ippc::dispatch dispatch(scribble);
  callback_status = -1;
  const auto refused = ippc::reply_decode(dispatch.run(request_of(99, {"kept"})));
  EXPECT_EQ(refused->status, -1);
  EXPECT_FALSE(refused->has_result);
  EXPECT_EQ(0, std::memcmp(refused->arguments[0].data(), "kept", 4));

  packet cut = request_of(99, {"kept"});
  cut.pop_back();
  calls = 0;
  const auto malformed = ippc::reply_decode(dispatch.run(cut));
  EXPECT_EQ(calls, 1);  // the callback hears of it
  EXPECT_EQ(malformed->status, -2);
  EXPECT_EQ(malformed->function_id, 99);
  EXPECT_TRUE(malformed->arguments.empty());
}

}  // namespace
