#include "pppoeia/identifiers/macro_values.h"

namespace macro_values {

void shelf(const macro_question& q, std::string& value)
{
  put_text(value, q.bridge.shelf_id);
}

void chassis(const macro_question& q, std::string& value)
{
  put_number(value, q.bridge.chassis_id);
}

void sysname(const macro_question& q, std::string& value)
{
  put_text(value, q.bridge.sysname);
}

void location(const macro_question& q, std::string& value)
{
  put_text(value, q.bridge.location);
}

void contact(const macro_question& q, std::string& value)
{
  put_text(value, q.bridge.contact);
}

void vlan(const macro_question& q, std::string& value)
{
  put_number(value, q.vid);
}

void vlan_name(const macro_question& q, std::string& value)
{
  const pppoeia_vlan* record = vlan_find(q.bridge, static_cast<uint16_t>(q.vid));
  if (!record)
    unavailable(q, "Invalid VLAN\n");
  else if (!record->name[0])
    unavailable(q, "Cannot read VLAN name\n");
  else
    put_text(value, record->name);
}

void cvid(const macro_question& q, std::string& value)
{
  constexpr unsigned none = 4095;
  if (q.cvid < none)
    put_number(value, q.cvid);
  else
    unavailable(q, "Invalid CVID\n");
}

}  // namespace macro_values
