#include "pppoeia/frame/parse.h"

#include "platform/kvbridge/record_header.h"

namespace {

constexpr size_t vlan_tag_size = 4;

vlan_tags vlan_tags_parse(const_bytes record, uint16_t stag_ethertype)
{
  constexpr size_t tpid = kernel_header::size + 12;
  vlan_tags tags{0, 0, tpid};
  const uint16_t outer = be16_at(record, tpid);
  unsigned most = 0;
  if (outer == stag_ethertype)
    most = 3;
  else if (outer == pppoe::ethertype_ctag)
    most = 2;
  else
    return tags;
  tags.tci = be16_at(record, tpid + 2);
  do {
    ++tags.count;
    tags.ethertype += vlan_tag_size;
  } while (tags.count < most && be16_at(record, tags.ethertype) == pppoe::ethertype_ctag);
  return tags;
}

discovery discovery_parse(const_bytes record, size_t ethertype)
{
  const uint16_t version_type_code = be16_at(record, ethertype + pppoe::version_type);
  return {
      .ethertype = ethertype,
      .version = static_cast<uint8_t>(version_type_code >> 12),
      .type = static_cast<uint8_t>(version_type_code >> 8 & 0x0f),
      .code = static_cast<uint8_t>(version_type_code),
      .session_id = be16_at(record, ethertype + pppoe::session_id),
      .payload_length = be16_at(record, ethertype + pppoe::payload_length),
  };
}

// A vendor tag that stands where the first tag would is found even behind the end of an empty payload: a port that may
// send none must not hide it there.
void tags_parse(parsed_frame& frame)
{
  const tag_area tags = frame.tags();
  frame.last_tag = tags.first;
  if (!tags.header_inside(tags.first))
    return;
  if (tags.type(tags.first) == pppoe::tag_vendor)
    frame.vendor_tag = tags.first;
  for (size_t tag = tags.begin(); tag != no_tag; tag = tags.behind(tag)) {
    if (frame.vendor_tag == no_tag && tags.type(tag) == pppoe::tag_vendor)
      frame.vendor_tag = tag;
    frame.last_tag = tag;
  }
}

}  // namespace

parsed_frame frame_parse(const_bytes record, uint16_t stag_ethertype)
{
  parsed_frame frame{.record = record};
  frame.vlan = vlan_tags_parse(record, stag_ethertype);
  frame.ethertype = be16_at(record, frame.vlan.ethertype);
  if (frame.ethertype != pppoe::ethertype_discovery)
    return frame;
  frame.pppoe = discovery_parse(record, frame.vlan.ethertype);
  frame.fits = frame.pppoe.end() <= record.size();
  if (frame.fits)
    tags_parse(frame);
  return frame;
}
