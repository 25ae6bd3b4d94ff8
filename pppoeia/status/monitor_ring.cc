#include "pppoeia/status/monitor_ring.h"

#include "platform/kvbridge/record_header.h"

#include <algorithm>

// In front of a frame's bytes: five words.
struct monitor_ring::header {
  static constexpr size_t words = 5;
  uint64_t number;  // from 1
  uint64_t at_ns;
  uint64_t fields;   // port, VLAN, code, fate
  uint64_t lengths;  // before, after
  uint64_t kept;     // bytes that follow, of each; each begins a word

  size_t before() const { return kept >> 32; }
  size_t after() const { return kept & 0xffffffff; }
  uint64_t all_words() const { return words + words_of_bytes(before()) + words_of_bytes(after()); }
  static uint64_t words_of_bytes(size_t count) { return (count + sizeof(word) - 1) / sizeof(word); }
};

namespace {

const_bytes frame_of(const unsigned char* record, uint32_t length)
{
  const size_t header = std::min<size_t>(length, kernel_header::size);
  return {record + header, length - header};
}

}  // namespace

monitor_ring::place monitor_ring::watch()
{
  if (!owner_) {
    owner_ = std::make_unique<ring>();
    ring_.set(owner_.get());
  }
  const place begin{owner_->written.get(), 0};
  watchers_.set(watchers_.own() + 1);
  return begin;
}

void monitor_ring::came(const frame_record& record)
{
  const const_bytes frame = frame_of(record.data, record.received);
  before_length_ = static_cast<uint32_t>(frame.size());
  before_kept_ = std::min(frame.size(), frame_most);
  std::copy_n(frame.begin(), before_kept_, before_);
}

void monitor_ring::left(const frame_record& record, const frame_result& result, uint64_t now_ns)
{
  ring& to = *ring_.get();
  const const_bytes frame = frame_of(record.data, std::min(result.length, record.capacity));
  const const_bytes after = frame.first(std::min(frame.size(), frame_most));
  const header head{++to.frames, now_ns,
                    static_cast<uint64_t>(result.port) << 32 | static_cast<uint64_t>(result.vid) << 16 |
                        static_cast<uint64_t>(result.code) << 8 | static_cast<uint64_t>(result.what),
                    static_cast<uint64_t>(before_length_) << 32 | frame.size(),
                    static_cast<uint64_t>(before_kept_) << 32 | after.size()};
  uint64_t at = to.written.own();
  to.claimed.set(at + head.all_words());
  for (const uint64_t value : {head.number, head.at_ns, head.fields, head.lengths, head.kept})
    to.at(at++).set(value);
  put(to, at, {before_, before_kept_});
  put(to, at + header::words_of_bytes(before_kept_), after);
  to.written.set(to.claimed.own());
}

void monitor_ring::put(ring& to, uint64_t at, const_bytes from)
{
  for (size_t done = 0; done < from.size(); done += sizeof(uint64_t)) {
    uint64_t value = 0;
    std::memcpy(&value, from.data() + done, std::min(sizeof value, from.size() - done));
    to.at(at++).set(value);
  }
}

std::string monitor_ring::take(const ring& from, uint64_t at, size_t length)
{
  std::string taken(length, '\0');
  for (size_t done = 0; done < length; done += sizeof(uint64_t)) {
    const uint64_t value = from.at(at++).get();
    std::memcpy(taken.data() + done, &value, std::min(sizeof value, length - done));
  }
  return taken;
}

bool monitor_ring::read(place& at, watched_frame& frame, uint64_t& lost) const
{
  const ring* from = ring_.get();
  if (!from || from->written.get() == at.words)
    return false;
  const auto overwritten = [&] { return from->claimed.get() - at.words > word_count; };
  const auto word_of = [&](uint64_t i) { return from->at(at.words + i).get(); };
  const header head{word_of(0), word_of(1), word_of(2), word_of(3), word_of(4)};
  if (!overwritten()) {
    const uint64_t bytes_at = at.words + header::words;
    frame = {head.at_ns,
             static_cast<fate>(head.fields & 0xff),
             static_cast<uint8_t>(head.fields >> 8),
             static_cast<uint16_t>(head.fields >> 32),
             static_cast<uint16_t>(head.fields >> 16),
             static_cast<uint32_t>(head.lengths >> 32),
             static_cast<uint32_t>(head.lengths),
             take(*from, bytes_at, head.before()),
             take(*from, bytes_at + header::words_of_bytes(head.before()), head.after())};
  }
  if (overwritten()) {
    at.words = from->written.get();  // what is lost shows by the next one's number
    return false;
  }
  lost += at.frame == 0 ? 0 : head.number - at.frame;
  at = {at.words + head.all_words(), head.number + 1};
  return true;
}
