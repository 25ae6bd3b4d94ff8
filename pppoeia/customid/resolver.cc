#include "pppoeia/customid/resolver.h"

#include "pppoeia/customid/test_data.h"
#include "pppoeia/customid/trace.h"
#include "pppoeia/customid/values.h"

bool getMacroStringValue(const pppoeia_bridge* bridge, customIdFormat macroType, std::string& macroString,
                         unsigned intfId, idGenType useData, unsigned short vid, unsigned short cvid)
{
  CUSTOMID_TRACE("\t", __func__, "macroType=%d('%s'), intfId=%d, useData=%d, vid=%d, cvid=%d \n", macroType,
                 macroFormatTypeToString(macroType).c_str(), static_cast<int>(intfId), useData, vid, cvid);
  macroString.clear();
  const macro_row* row = macro_row_find(macroType);
  const bool known = row && row->value;
  const customFormatTestData_t& test = customFormatTestData;
  if (!known)
    pppoeia_log(log_debug, "<%s> >> Unknown macro: %d.\n", bridge->name, macroType);
  else if (useData == idGenTest)
    row->value({*bridge, test.intfId, useData, test.vlan, test.cvid}, macroString);
  else
    row->value({*bridge, intfId, useData, vid, cvid}, macroString);
  CUSTOMID_TRACE("\t", __func__, "macroString='%s'\n", macroString.c_str());
  return known;
}
