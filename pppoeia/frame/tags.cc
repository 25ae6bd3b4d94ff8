#include "pppoeia/frame/tags.h"

#include "pppoeia/log.h"
#include "pppoeia/records.h"

const char* pppoeia_tag_name(uint16_t type)
{
  switch (type) {
  case pppoe::tag_end_of_list:
    return "EOL";
  case pppoe::tag_service_name:
    return "SRV_NAME";
  case pppoe::tag_ac_name:
    return "AC_NAME";
  case pppoe::tag_host_uniq:
    return "HOST_UNIQ";
  case pppoe::tag_ac_cookie:
    return "AC_COOKIE";
  case pppoe::tag_vendor:
    return "VENDOR";
  case pppoe::tag_relay_session_id:
    return "RELAY_SID";
  case pppoe::tag_service_error:
    return "SRV_ERR";
  case pppoe::tag_system_error:
    return "SYS_ERR";
  case pppoe::tag_generic_error:
    return "GEN_ERR";
  default:
    return "Unknown";
  }
}

void past_end_log(const pppoeia_bridge& bridge, const tag_area& area, size_t tag)
{
  const unsigned char* base = area.record.data();
  pppoeia_log(log_debug, "<%s>          Past PPPoE end: %p >= %p", bridge.name, static_cast<const void*>(base + tag),
              static_cast<const void*>(base + area.end));
}

namespace {

// The walk: visits tags until `visit` says true, and answers where it stopped. `visit` is asked before the end test
// when it is a search (`before_end`), else after it.
enum class ask : bool { after_end_test, before_end_test };

template <ask When, typename Visit>
size_t walk(const pppoeia_bridge& bridge, const tag_area& area, Visit visit)
{
  size_t tag = area.first;
  while (true) {
    if (When == ask::before_end_test && area.header_inside(tag) && visit(tag))
      return tag;
    if (tag >= area.end) {
      past_end_log(bridge, area, tag);
      return no_tag;
    }
    if (When == ask::after_end_test && visit(tag))
      return no_tag;
    if (area.type(tag) == pppoe::tag_end_of_list || !area.fits(area.next(tag)))
      return no_tag;
    tag = area.next(tag);
  }
}

}  // namespace

size_t vendor_tag_find(const pppoeia_bridge& bridge, const tag_area& area)
{
  return walk<ask::before_end_test>(bridge, area, [&](size_t tag) { return area.type(tag) == pppoe::tag_vendor; });
}

size_t vendor_tag_place(const pppoeia_bridge& bridge, const tag_area& area)
{
  size_t last = area.first;  // where an empty list would have it
  walk<ask::after_end_test>(bridge, area, [&](size_t tag) {
    last = tag;
    return false;
  });
  return area.type(last) == pppoe::tag_end_of_list || !area.fits(last) ? last : area.next(last);
}

void tags_log(const pppoeia_bridge& bridge, const tag_area& area)
{
  walk<ask::after_end_test>(bridge, area, [&](size_t tag) {
    const int length = area.length(tag);
    pppoeia_log(log_debug, "<%s>        %s (0x%04x), %d (0x%04x) bytes.", bridge.name, pppoeia_tag_name(area.type(tag)),
                area.type(tag), length, static_cast<unsigned>(length));
    return false;
  });
}
