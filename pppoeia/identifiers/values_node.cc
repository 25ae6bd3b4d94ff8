#include "platform/ncfm/ncfm.h"
#include "pppoeia/identifiers/macro_values.h"
#include "pppoeia/identifiers/test_data.h"
#include "pppoeia/kernel/devices.h"
#include "rte/BLL/util/kv_util.h"

namespace {

thread_local bool without_frame = false;

}  // namespace

no_frame_scope::no_frame_scope()
{
  without_frame = true;
}

no_frame_scope::~no_frame_scope()
{
  without_frame = false;
}

namespace macro_values {

void agent_board(const macro_question& q, std::string& value)
{
  ncfmBoardPos own;
  if (ncfmGetMyBoardPos(&own) == 0)
    put_number(value, own.position);
  else
    unavailable(q, "Cannot read ncfmGetMyBoardPos");
}

// Nothing on a line card knows the number of the board that the line ends on.
void board(const macro_question& q, std::string&)
{
  unavailable(q, "Cannot read valid board type");
}

void clnt_mac(const macro_question& q, std::string& value)
{
  if (q.use_data != idGenLive)
    return put_mac(value, customFormatTestData.clntMac);
  if (without_frame || !q.bridge.frame_buffer)
    return unavailable(q, "Invalid frame )\n");
  const uint64_t packed = q.bridge.frame_client_mac;
  uint8_t mac[6];
  for (unsigned i = 0; i < 6; ++i)
    mac[i] = static_cast<uint8_t>(packed >> (8 * (5 - i)));
  put_mac(value, mac);
}

void agent_mac(const macro_question& q, std::string& value)
{
  uint8_t mac[6];
  if (pppoeia_get_local_mac(mac) == 0)
    put_mac(value, mac);
  else
    unavailable(q, "pppoeia_get_local_mac failed\n");
}

void agent_ipv4(const macro_question& q, std::string& value)
{
  const pppoeia_port* port = slot_of(q, q.port_id);
  ncfmInterface itf;
  if (port && ncfmGetInterface(port->dev_name, &itf) == 0)
    value = CKvUtil::ipv4ToString(itf.ipv4);
  else
    unavailable(q, "ip NULL \n");
}

void agent_ipv6(const macro_question& q, std::string& value)
{
  uint8_t address[16];
  if (ncfmGetIpv6(address) == 0)
    value = CKvUtil::ipv6ToString(address);
  else
    unavailable(q, "getIpv6Addr: ncfmGetIpv6 has failed\n");
}

}  // namespace macro_values
