#include "pppoeia/status/drop_list.h"

void drop_list::add(const_bytes frame, uint64_t client, const frame_result& result, uint64_t now_ns)
{
  const uint64_t number = count_.own();
  entry& to = entries_[number % most];
  to.changes.begin();
  to.at_ns.set(now_ns);
  to.client.set(client);
  to.place.set(static_cast<uint64_t>(result.port) << 32 | static_cast<uint64_t>(result.vid) << 16 |
               static_cast<uint64_t>(result.code) << 8 | static_cast<uint64_t>(result.what));
  to.length.set(static_cast<uint32_t>(frame.size()));
  to.begin.set(frame.first(std::min(frame.size(), bytes_kept)));
  to.changes.end();
  count_.set(number + 1);
}

std::vector<dropped_frame> drop_list::all() const
{
  std::vector<dropped_frame> list;
  const uint64_t count = count_.get();
  for (uint64_t number = count > most ? count - most : 0; number < count; ++number) {
    const entry& from = entries_[number % most];
    dropped_frame frame{};
    const bool whole = from.changes.read([&] {
      const uint64_t place = from.place.get();
      frame = {from.at_ns.get(),
               static_cast<fate>(place & 0xff),
               static_cast<uint8_t>(place >> 8),
               static_cast<uint16_t>(place >> 32),
               static_cast<uint16_t>(place >> 16),
               from.client.get(),
               from.length.get(),
               from.begin.get()};
    });
    if (whole && (list.empty() || frame.at_ns >= list.back().at_ns))  // an older place may hold a newer frame by now
      list.push_back(std::move(frame));
  }
  return list;
}
