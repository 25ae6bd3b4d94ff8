#include "fuzz/frames/spoofing.h"

#include <algorithm>

namespace spoofing {

namespace {

using namespace std::string_literals;

constexpr uint8_t padi = 0x09, padr = 0x19;
constexpr unsigned vendor = 0x0105;

unsigned number_at(std::span<const unsigned char> from, size_t offset)
{
  return static_cast<unsigned>(from[offset] << 8 | from[offset + 1]);
}

// The bytes behind the discovery EtherType; none when the frame is another.
std::span<const unsigned char> pppoe_of(std::span<const unsigned char> ethernet)
{
  size_t ethertype = 12;
  while (ethertype + 8 <= ethernet.size()) {
    const unsigned type = number_at(ethernet, ethertype);
    if (type == 0x8863)
      return ethernet.subspan(ethertype + 2);
    if (type != 0x8100 && type != 0x88a8)
      return {};
    ethertype += 4;
  }
  return {};
}

}  // namespace

reading read(std::span<const unsigned char> ethernet, reader who)
{
  const std::span<const unsigned char> pppoe = pppoe_of(ethernet);
  if (pppoe.size() < 6)
    return {};
  reading result{pppoe[1], {}};
  const std::span<const unsigned char> rest = pppoe.subspan(6);
  const size_t payload = std::min<size_t>(number_at(pppoe, 4), rest.size());
  const size_t end = who == reader::strict ? payload : rest.size();
  for (size_t at = 0; at + 4 <= end;) {
    const unsigned type = number_at(rest, at);
    const size_t value = at + 4;
    const size_t next = value + number_at(rest, at + 2);
    if (who == reader::strict && (type == 0 || next > end))
      break;
    if (type == vendor) {
      const auto bytes = rest.subspan(value, std::min(next, rest.size()) - value);
      result.vendor = vendor_seen{{bytes.begin(), bytes.end()}, next <= payload};
      break;
    }
    at = next;
  }
  return result;
}

std::string complaint(std::span<const unsigned char> ethernet, const std::string& own)
{
  const reading strict = read(ethernet, reader::strict);
  if (strict.code != padi && strict.code != padr)
    return strict.vendor ? "a vendor tag in a frame that has none of the line's" : "";
  for (const reader who : {reader::strict, reader::lenient}) {
    const std::string name = who == reader::strict ? "to a strict reader " : "to a lenient reader ";
    const reading seen = read(ethernet, who);
    if (!seen.vendor)
      return name + "no vendor tag";
    if (!seen.vendor->inside)
      return name + "the first vendor tag is not inside the payload";
    if (seen.vendor->value != own)
      return name + "the first vendor tag is not the line's";
  }
  return {};
}

namespace {

std::string be16(size_t value)
{
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

// A tag that claims `claimed` bytes more than it has.
std::string tag_of(unsigned type, const std::string& value, size_t claimed = 0)
{
  return be16(type) + be16(value.size() + claimed) + value;
}

}  // namespace

std::string forger::noise(uint32_t most)
{
  std::string bytes(below(most + 1), '\0');
  for (char& c : bytes)
    c = static_cast<char>(random_());
  return bytes;
}

std::string forger::vendor_tag()
{
  switch (below(4)) {
  case 0:
    return tag_of(vendor, "");
  case 1:
    return tag_of(vendor, noise(20));
  default:
    return tag_of(vendor, "\x00\x00\x0d\xe9\x01\x06"s + "FORGED" + "\x02\x04"s + "LINE");
  }
}

// One of the list, or what stands where one should.
std::string forger::tag()
{
  const unsigned types[] = {0x0101, 0x0103, 0x0104, 0x0110, 0x0203, 0x4242, below(0x10000)};
  const unsigned type = types[below(std::size(types))];
  const size_t more = once_in(3) ? below(0x10000) : 1 + below(200);
  switch (below(16)) {
  case 0:
    return vendor_tag();
  case 1:
    return tag_of(vendor, noise(20), more);
  case 2:
    return tag_of(type, noise(20), more);
  case 3:  // nested, where a tag may begin or off its place
    return tag_of(type, noise(once_in(2) ? 0 : 3) + vendor_tag() + noise(4));
  case 4:
    return tag_of(0, once_in(2) ? "" : vendor_tag()) + (once_in(2) ? vendor_tag() : "");
  case 5:
    return vendor_tag().substr(0, 1 + below(3));
  default:
    return tag_of(once_in(3) ? 0x0101 : type, noise(once_in(2) ? 4 : 40));
  }
}

std::string forger::trailer()
{
  switch (below(6)) {
  case 0:
    return vendor_tag() + noise(8);
  case 1:
    return tag_of(0, "") + vendor_tag();
  case 2: {
    const std::string value = noise(60);
    return tag_of(0x0101, value) + vendor_tag();
  }
  case 3:
    return std::string(below(40), '\0');
  case 4:
    return noise(40);
  default:
    return {};
  }
}

// Mostly what the tags take; else less, next to nothing, more, or anything.
uint16_t forger::payload_length(size_t tags, size_t behind)
{
  const auto most = static_cast<uint32_t>(tags);
  switch (below(10)) {
  case 0:
  case 1:
    return static_cast<uint16_t>(below(most + 1));
  case 2:
  case 3:
    return static_cast<uint16_t>(below(std::min(most, 8u) + 1));
  case 4:
    return static_cast<uint16_t>(most + below(static_cast<uint32_t>(behind) + 2));
  case 5:
    return once_in(4) ? static_cast<uint16_t>(random_()) : static_cast<uint16_t>(most);
  default:
    return static_cast<uint16_t>(most);
  }
}

frame forger::next()
{
  constexpr unsigned char codes[] = {0x09, 0x09, 0x09, 0x19, 0x19, 0xa7, 0x07, 0x65};
  std::string bytes = once_in(3) ? "\x02\x00\x00\x00\x00\x99"s : std::string(6, '\xff');
  bytes += "\x02\x11\x22\xaa\xbb\xcc";
  for (const uint32_t vlan : stacks_[below(static_cast<uint32_t>(stacks_.size()))])
    bytes += be16(vlan >> 16) + be16(vlan & 0xffff);
  const unsigned char code = once_in(50) ? static_cast<unsigned char>(random_()) : codes[below(std::size(codes))];
  bytes += "\x88\x63\x11"s + static_cast<char>(code) + be16(once_in(3) ? below(0x10000) : 0);
  std::string tags;
  for (uint32_t count = below(6); count > 0; --count)
    tags += tag();
  const std::string behind = trailer();
  bytes += be16(payload_length(tags.size(), behind.size())) + tags + behind;
  bytes.resize(std::max<size_t>(bytes.size(), once_in(2) ? 60 : 0), '\0');
  return {bytes.begin(), bytes.end()};
}

}  // namespace spoofing
