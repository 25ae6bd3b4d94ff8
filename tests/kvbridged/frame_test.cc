#include "platform/kvbridged/frame.h"

#include "base/descriptor.h"
#include "platform/kvbridged/port_socket.h"
#include "platform/kvbridged/settings.h"
#include "tests/kvbridged/frames.h"
#include "tests/support/golden_frame.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace kvbridged;

constexpr uint16_t own_stag = 0x9988;
constexpr uint16_t padded = 60;

// The kernel runs the filter on what is written to one end of a socket pair.
class filter_in_kernel {
public:
  explicit filter_in_kernel(port_frames which)
  {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends), 0);
    from_ = descriptor(ends[0]);
    to_ = descriptor(ends[1]);
    std::vector<sock_filter> program = discovery_filter(which, own_stag);
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    EXPECT_EQ(setsockopt(to_.get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter), 0);
  }
  bool passes(frame_view frame) const
  {
    unsigned char byte;
    EXPECT_EQ(send(from_.get(), frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
    return recv(to_.get(), &byte, 1, 0) > 0;
  }

private:
  descriptor from_, to_;
};

frame_kind kind_expected(const std::vector<uint16_t>& tags, uint16_t ethertype)
{
  const bool own =
      std::ranges::all_of(tags, [](uint16_t type) { return type == 0x8100 || type == 0x88a8 || type == own_stag; });
  if (tags.size() > 4)
    return frame_kind::hidden;
  if (ethertype != discovery_ethertype)
    return frame_kind::other;
  return own ? frame_kind::discovery : frame_kind::hidden;
}

TEST(Classify, EveryStackOfTags)
{
  each_stack(own_stag, [](const std::vector<uint16_t>& tags) {
    for (const uint16_t ethertype : {discovery_ethertype, uint16_t{0x8864}, uint16_t{0x9400}}) {
      frame_bytes frame = frame_head(everybody, host_address(1), tags, ethertype);
      const size_t at = frame.size() - 2;
      frame.resize(padded);
      const frame_class found = classify(frame, own_stag);
      ASSERT_EQ(found.kind, kind_expected(tags, ethertype));
      ASSERT_TRUE(found.kind == frame_kind::hidden || found.ethertype == at);
    }
  });
}

TEST(Classify, AFrameThatEndsInItsTagsIsHidden)
{
  frame_bytes frame = frame_head(everybody, host_address(1), {0x8100, 0x8100}, discovery_ethertype);
  EXPECT_EQ(classify(frame, own_stag).kind, frame_kind::discovery);
  for (frame.pop_back(); frame.size() >= ethernet_header; frame.pop_back())
    EXPECT_EQ(classify(frame_bytes(frame), own_stag).kind, frame_kind::hidden);  // a copy has no byte behind its end
}

TEST(Classify, DiscoveryBehindSnapIsHidden)
{
  for (const std::vector<uint16_t>& outside : {std::vector<uint16_t>{}, {0x8100}, {own_stag, 0x8100}})
    for (const std::vector<uint16_t>& inside : {std::vector<uint16_t>{}, {0x8100}})
      for (const unsigned char kind : std::initializer_list<unsigned char>{0x00, 0xf8, 0x80})
        for (const uint16_t ethertype : {discovery_ethertype, uint16_t{0x0800}}) {
          const frame_bytes frame = behind_snap(outside, inside, kind, ethertype);
          const bool hides = ethertype == discovery_ethertype && kind != 0x80;
          EXPECT_EQ(classify(frame, own_stag).kind, hides ? frame_kind::hidden : frame_kind::other);
        }
}

// With what looks like discovery's EtherType where it would stand behind one more tag.
frame_bytes frame_behind(const std::vector<uint16_t>& tags, uint16_t ethertype)
{
  frame_bytes frame = frame_head(everybody, host_address(1), tags, ethertype);
  word_add(frame, 0);
  word_add(frame, discovery_ethertype);
  return frame;
}

// Whether the outer tag is in the frame or was taken off: what is for the agent comes by the discovery socket, and each
// frame comes by exactly one.
TEST(DiscoveryFilter, AgreesWithClassify)
{
  const filter_in_kernel discovery(port_frames::discovery);
  const filter_in_kernel others(port_frames::others);
  each_stack(own_stag, [&](const std::vector<uint16_t>& tags) {
    for (const uint16_t ethertype : {discovery_ethertype, uint16_t{0x0800}}) {
      const frame_bytes whole = frame_behind(tags, ethertype);
      const std::vector<uint16_t> rest(tags.begin() + (tags.empty() ? 0 : 1), tags.end());
      const frame_kind kind = classify(whole, own_stag).kind;
      for (const frame_bytes& seen : {whole, frame_behind(rest, ethertype)}) {
        const bool passes = discovery.passes(seen);
        ASSERT_NE(passes, others.passes(seen));
        ASSERT_TRUE(kind != frame_kind::discovery || passes);
        ASSERT_TRUE(kind != frame_kind::other || !passes);
      }
    }
  });
  frame_bytes cut = frame_head(everybody, host_address(1), {0x8100}, discovery_ethertype);
  cut.pop_back();
  EXPECT_FALSE(discovery.passes(cut));
  EXPECT_TRUE(others.passes(cut));
}

// Behind ten bytes of what is left to do.
TEST(PortReader, TakesWholeFramesAlone)
{
  constexpr size_t left_to_do = 10, largest = 65536 + 14 + 4 * 4;
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends), 0);
  const descriptor from(ends[0]), to(ends[1]);
  port_reader reader;
  for (const auto& [size, whole] :
       {std::pair<size_t, bool>{13, false}, {14, true}, {largest, true}, {largest + 1, false}}) {
    const frame_bytes sent(left_to_do + size, 7);
    EXPECT_EQ(send(from.get(), sent.data(), sent.size(), 0), static_cast<ssize_t>(sent.size()));
    const auto frame = reader.read(to.get());
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->bytes.size(), whole ? size : 0);
  }
  errno = 0;
  EXPECT_EQ(send(from.get(), "", 0, 0), 0);
  const auto nothing = reader.read(to.get());
  EXPECT_TRUE(nothing && nothing->bytes.empty());
  EXPECT_FALSE(reader.read(to.get()));
}

TEST(PortSocket, IsForThoseWithTheRight)
{
  const auto open_as_nobody = [] {
    try {
      if (setuid(65534) == 0 || getuid() != 0)
        port_socket_open("lo", port_frames::discovery, 0x88a8);
    } catch (const fatal& error) {
      std::fputs(error.what(), stderr);
    }
    _exit(1);
  };
  EXPECT_EXIT(open_as_nobody(), testing::ExitedWithCode(1), "^no packet socket for 'lo': Operation not permitted$");
}

TEST(ErrorAnswer, GoesBackBehindTheSameTags)
{
  for (const auto& [request, reply] : {std::pair(0x09, 0x07), std::pair(0x19, 0x65)}) {
    frame_bytes frame =
        discovery_frame(static_cast<unsigned char>(request), everybody, host_address(1), 1600, {own_stag, 0x8100});
    frame[24] = 0xab;  // the session id stays
    frame_bytes expected = frame_head(host_address(1), host_address(9), {own_stag, 0x8100}, discovery_ethertype);
    for (const unsigned word : {0x1100 | reply, 0xab00, 4, 0x0203, 0})
      word_add(expected, word);
    expected.resize(60, 0xff);
    EXPECT_EQ(error_answer(frame, 20, host_address(9)), expected);
  }
}

TEST(ErrorAnswer, IsAsItIsWritten)
{
  const mac_address agent{0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
  EXPECT_EQ(error_answer(golden_frame("padi-too-long"), 12, agent), golden_frame("pado-error"));
}

TEST(ErrorAnswer, OnlyForAWholeRequestOfAClient)
{
  const auto answered = [](const frame_bytes& frame) {
    const frame_bytes alone(frame);  // no byte behind its end
    return error_answer(alone, 12, host_address(9)).has_value();
  };
  EXPECT_TRUE(answered(discovery_frame(0x09, everybody, host_address(1))));
  for (const int code : {0x07, 0x65, 0xa7, 0x00})
    EXPECT_FALSE(answered(discovery_frame(static_cast<unsigned char>(code), everybody, host_address(1))));
  EXPECT_FALSE(answered(discovery_frame(0x09, host_address(9), everybody)));
  frame_bytes cut = discovery_frame(0x09, everybody, host_address(1));
  while (cut.size() > ethernet_header) {
    cut.pop_back();
    EXPECT_FALSE(answered(cut));
  }
}

}  // namespace
