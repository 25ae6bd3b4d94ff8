#include "pppoeia/frame/error_answer.h"

#include "platform/kvbridge/control.h"
#include "platform/kvbridge/record_header.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <cstring>
#include <string>

bool error_answer_make(const pppoeia_bridge& bridge, const frame_record& record, const discovery& request,
                       frame_services& services)
{
  unsigned char* data = record.data;
  char* input = reinterpret_cast<char*>(data + kernel_header::input_device);
  char* output = reinterpret_cast<char*>(data + kernel_header::output_device);
  std::memcpy(output, input, kernel_header::device_size);
  const std::string device = pseudo_device_name(bridge.name);
  std::memcpy(input, device.c_str(), device.size() + 1);  // bytes behind the NUL stay as they were
  output[0] = '\0';                                       // sent empty on purpose

  unsigned char local[6];
  if (services.local_mac(local) != 0) {
    pppoeia_log(log_error, "<%s>    Error getting local MAC.", bridge.name);
    return false;
  }
  unsigned char* to = data + kernel_header::size;
  unsigned char* from = to + 6;
  std::memcpy(to, from, 6);
  std::memcpy(from, local, 6);

  const mutable_bytes whole{data, record.capacity};
  whole[request.ethertype + pppoe::code_offset] = request.code == pppoe::padi ? pppoe::pado : pppoe::pads;
  be16_put(whole, request.ethertype + pppoe::payload_length, pppoe::tag_header);
  be16_put(whole, request.first_tag(), pppoe::tag_generic_error);
  be16_put(whole, request.first_tag() + 2, 0);
  const size_t rest = request.first_tag() + pppoe::tag_header;
  if (rest < record.received)
    std::memset(data + rest, 0xff, record.received - rest);
  return true;
}
