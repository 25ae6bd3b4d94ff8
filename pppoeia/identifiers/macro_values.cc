#include "pppoeia/identifiers/macro_values.h"

#include "pppoeia/customid/trace.h"
#include "pppoeia/identifiers/test_data.h"

#include <array>
#include <cstddef>

namespace {

using answer_function = void (*)(const macro_question& q, std::string& value);

// That there is a function stands beside it: under a sanitizer, comparing its address is no constant expression.
struct answer {
  constexpr answer(customIdFormat its, answer_function function) : macro(its), value(function), known(true) {}
  constexpr answer(customIdFormat its, std::nullptr_t) : macro(its), value(nullptr), known(false) {}

  customIdFormat macro;
  answer_function value;  // null: nothing knows it
  bool known;
};

constexpr std::array<answer, customIdFormatCount> answers{{
    {SHELF, macro_values::shelf},
    {CHASSIS, macro_values::chassis},
    {PANEL, macro_values::panel},
    {INTF_TYPE, macro_values::intf_type},
    {AGENT_BOARD, macro_values::agent_board},
    {BOARD, macro_values::board},
    {PORT, macro_values::port},
    {PORT_REM_ID, macro_values::port_rem_id},
    {INTF, macro_values::intf},
    {INTF_DSCR, macro_values::intf_dscr},
    {ONU, macro_values::onu},
    {VGEM, macro_values::vgem},
    {TCONT, nullptr},
    {PVC_INTF, macro_values::pvc_intf},
    {VPI, macro_values::vpi},
    {VCI, macro_values::vci},
    {CLNT_MAC, macro_values::clnt_mac},
    {AGENT_MAC, macro_values::agent_mac},
    {AGENT_IPV4, macro_values::agent_ipv4},
    {AGENT_IPV6, macro_values::agent_ipv6},
    {VLAN, macro_values::vlan},
    {VLAN_NAME, macro_values::vlan_name},
    {CVID, macro_values::cvid},
    {SYSNAME, macro_values::sysname},
    {LOCATION, macro_values::location},
    {CONTACT, macro_values::contact},
    {HEX, nullptr},
    {CPE_SERIAL, macro_values::cpe_serial},
    {CPE_MAC, macro_values::cpe_mac},
}};

constexpr bool rows_match_the_vocabulary()
{
  for (size_t i = 0; i < answers.size(); ++i)
    if (answers[i].macro != macro_rows[i].type || answers[i].known != macro_rows[i].has_source)
      return false;
  return true;
}
static_assert(rows_match_the_vocabulary(), "each macro in its place, with a function when it has a source");

// The values of one line.
class line_source final : public macro_source {
public:
  line_source(const pppoeia_bridge* bridge, unsigned intfId, unsigned short vid, unsigned short cvid, idGenType useData)
      : bridge_(bridge), intf_id_(intfId), vid_(vid), cvid_(cvid), use_data_(useData)
  {}

  const char* name() const override { return bridge_->name; }

  bool value(customIdFormat macro, std::string& value) const override
  {
    return getMacroStringValue(bridge_, macro, value, intf_id_, use_data_, vid_, cvid_);
  }

private:
  const pppoeia_bridge* bridge_;
  unsigned intf_id_;
  unsigned short vid_;
  unsigned short cvid_;
  idGenType use_data_;
};

}  // namespace

bool getMacroStringValue(const pppoeia_bridge* bridge, customIdFormat macroType, std::string& macroString,
                         unsigned intfId, idGenType useData, unsigned short vid, unsigned short cvid)
{
  CUSTOMID_TRACE("\t", __func__, "macroType=%d('%s'), intfId=%d, useData=%d, vid=%d, cvid=%d \n", macroType,
                 macroFormatTypeToString(macroType).c_str(), static_cast<int>(intfId), useData, vid, cvid);
  macroString.clear();
  const auto value = macro_row_find(macroType) ? answers[static_cast<size_t>(macroType)].value : nullptr;
  const customFormatTestData_t& test = customFormatTestData;
  if (!value)
    pppoeia_log(log_debug, "<%s> >> Unknown macro: %d.\n", bridge->name, macroType);
  else if (useData == idGenTest)
    value({*bridge, test.intfId, useData, test.vlan, test.cvid}, macroString);
  else
    value({*bridge, intfId, useData, vid, cvid}, macroString);
  CUSTOMID_TRACE("\t", __func__, "macroString='%s'\n", macroString.c_str());
  return value != nullptr;
}

bool genCustomId(const pppoeia_bridge* bridge, unsigned intfId, unsigned short vid, unsigned short cvid,
                 const std::string& formatStr, std::string& genId, std::vector<unsigned char>& genIdBin,
                 idGenType useData)
{
  custom_id_expand(line_source(bridge, intfId, vid, cvid, useData), formatStr, genId, genIdBin);
  return true;
}
