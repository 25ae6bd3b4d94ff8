// Identifier formats of a bridge: kept as text, read when an identifier is built.
#include "pppoeia/pppoeia.h"

#include "pppoeia/api/operation.h"
#include "pppoeia/text.h"

namespace {

using format_field = char (pppoeia_bridge::*)[bridge_format_max + 1];

// `which` is "CID" or "RID". The result trace shows the text instead of the code.
int format_set(const operation& self, const char* bridge, format_field field, const char* which, const char* format)
{
  self.entry(bridge, format);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    if (text_longer_than(format, bridge_format_max))
      return outcome{self.no_space(), true};
    text_copy(record.*field, format);
    pppoeia_log(log_debug, "<%s> Custom %s format set.", record.name, which);
    return outcome{self.refused(format, 0), true};
  });
}

int format_get(const operation& self, const char* bridge, format_field field, char* format)
{
  self.entry(bridge);
  return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
    text_give(format, record.*field);
    return outcome{0};
  });
}

}  // namespace

int pppoeia_circuit_id_format_set(const char* bridge, const char* format)
{
  return format_set(operation{__func__}, bridge, &pppoeia_bridge::pppoeia_cid_format, "CID", format);
}

int pppoeia_circuit_id_format_get(const char* bridge, char* format)
{
  return format_get(operation{__func__}, bridge, &pppoeia_bridge::pppoeia_cid_format, format);
}

int pppoeia_remote_id_format_set(const char* bridge, const char* format)
{
  return format_set(operation{__func__}, bridge, &pppoeia_bridge::pppoeia_rid_format, "RID", format);
}

int pppoeia_remote_id_format_get(const char* bridge, char* format)
{
  return format_get(operation{__func__}, bridge, &pppoeia_bridge::pppoeia_rid_format, format);
}
