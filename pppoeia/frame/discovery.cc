#include "pppoeia/frame/discovery.h"

#include "platform/kvbridge/record_header.h"

namespace {

constexpr size_t vlan_tag_size = 4;

}  // namespace

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
