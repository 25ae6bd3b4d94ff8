// The board's configuration file:
//
//   <anything>
//     <BLL>
//       <BOARD Id="all_boards">  <BLE Name="a" Load="dynamic" Library="liba.so" Start="true"/>  ...  </BOARD>
//       <BOARD Id="BOARD_BT5">   ...                                                            </BOARD>
//     </BLL>
//   </anything>
//
// A walk goes from the first element of the wanted name through all the elements that follow it, whatever they are
// called: files in the field rely on it.
#include "rte/BLL/core/manager/board.h"

#include "platform/nodeinfo/nodeinfo.h"
#include "rte/BLL/core/manager/log_line.h"
#include "rte/BLL/core/storage_mng.h"
#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string_view>

namespace {

struct boardType_t {
  std::string_view code;      // what the board's identity begins with
  std::string_view fullName;  // what configuration files call it; empty: it has no name but its identity
};

constexpr std::array<boardType_t, 10> boardTypes = {{
    {"BT1", ""},
    {"BT2", "BOARD_BT2"},
    {"BT3", "BOARD_BT3"},
    {"BT4", "BOARD_BT4"},
    {"BT5", "BOARD_BT5"},
    {"BT6", "BOARD_BT6"},
    {"BT7", "BOARD_BT7"},
    {"BT8", "BOARD_BT8"},
    {"BT9", "BOARD_BT9"},
    {"BTA", "BOARD_BTA"},
}};

// Capabilities of the node, as the node information library counts them.
enum class capability_t : int { httpServer = 5, fullBoardNames = 12, downstreamFec = 13, onuBasedStates = 15 };

bool nodeHas(capability_t capability)
{
  return isActive(static_cast<int>(capability)) != 0;
}

// The first three characters of a board's description.
std::string_view typeCode(std::string_view description)
{
  return description.substr(0, 3);
}

// Null for a type that is not in the table.
const boardType_t* findType(std::string_view description)
{
  const auto row = std::ranges::find(boardTypes, typeCode(description), &boardType_t::code);
  return row != boardTypes.end() ? &*row : nullptr;
}

// What configuration files call the board.
std::string fullBoardName(const std::string& description)
{
  const boardType_t* const type = findType(description);
  return type && !type->fullName.empty() ? std::string(type->fullName) : description;
}

bool appliesTo(const std::string& board, const std::string& id)
{
  return id == "all_boards" || board.compare(0, id.size(), id) == 0;
}

int32_t loadModeOf(const std::string& load)
{
  if (load == "dynamic")
    return 1;
  return load == "static" ? 0 : -1;
}

// The value of the environment variable, or the built-in path where it is not set or empty.
std::string pathFrom(const char* variable, const char* builtIn)
{
  const char* const value = std::getenv(variable);
  return value && *value ? value : builtIn;
}

std::string firstLine(std::istream& file)
{
  std::string line;
  std::getline(file, line);
  while (!line.empty() && line.back() == '\r')
    line.pop_back();
  return line;
}

}  // namespace

std::string board_t::description()
{
  const std::string path = pathFrom("BLL_BOARD_ID", "/tmp/get_board_id");
  bool opened = false;
  std::string read;
  {
    const mutex_guard guard(mutex_);
    if (!description_.empty())
      return description_;
    std::ifstream file(path);
    opened = file.is_open();
    read = description_ = firstLine(file);
  }
  if (!opened)
    logAt(LogImpl::critical) << "BLLManager, Can not find board description, open file <" << path << "> failed.\n";
  else if (read.empty())
    logAt(LogImpl::critical) << "BLLManager, Can not find board description, buffer is empty.\n";
  else
    logAt(LogImpl::notice) << "BLLManager, running on board <" << read << ">.\n";
  return read;
}

void board_t::readConfiguration()
{
  std::string board = description();
  if (board.empty()) {
    logAt(LogImpl::critical) << "BLLManager, Can not load bll configuration from XML.\n";
    return;
  }
  if (nodeHas(capability_t::fullBoardNames)) {
    board = fullBoardName(board);
    logAt(LogImpl::notice) << "BLLManager: load bll configuration from XML for " << board << " \n";
  }
  const std::string path = pathFrom("BLL_CONFIG", "/opt/pv3100/neroot/active/bridge_SW/bin/bll_config.xml");
  if (!std::ifstream(path)) {
    logAt(LogImpl::critical) << "BLLManager, Can not open bll configuration file.\n";
    return;
  }
  Storage::StorageMng store;
  if (!store.load(path))
    return;
  const boost::shared_ptr<Storage::Setting> root = store.getRoot("BLL");
  if (!root)
    return;
  for (auto section = root->getSubSetting("BOARD"); section; section = section->getNext())
    if (appliesTo(board, section->getValue("Id")))
      takeOver(section);
}

// Later sections overwrite what earlier ones said of the same entity.
void board_t::takeOver(const boost::shared_ptr<Storage::Setting>& section)
{
  for (auto element = section->getSubSetting("BLE"); element; element = element->getNext()) {
    bleInfo_t info;
    info.name = element->getValue("Name");
    if (info.name.empty())
      continue;
    info.loadMode = loadModeOf(element->getValue("Load"));
    const std::string library = info.loadMode == 1 ? element->getValue("Library") : "";
    info.start = element->getValue("Start") == "true";
    const mutex_guard guard(mutex_);
    if (!library.empty())
      libraries_.push_back(library);
    configuration_[info.name] = info;
  }
}

std::vector<std::string> board_t::entityNames() const
{
  const mutex_guard guard(mutex_);
  std::vector<std::string> names;
  for (const auto& [name, info] : configuration_)
    names.push_back(name);
  return names;
}

bool board_t::starts(const std::string& entity) const
{
  const mutex_guard guard(mutex_);
  const auto record = configuration_.find(entity);
  return record != configuration_.end() && record->second.start;
}

bool board_t::disable(const std::string& entity)
{
  const mutex_guard guard(mutex_);
  const auto record = configuration_.find(entity);
  if (record == configuration_.end())
    return false;
  record->second.start = false;
  return true;
}

std::vector<std::string> board_t::libraries() const
{
  const mutex_guard guard(mutex_);
  return libraries_;
}

std::string board_t::libraryPath(const std::string& library)
{
  std::string folder = pathFrom("BLL_LIB_DIR", "../lib/");  // relative to the working directory of the host
  if (folder.back() != '/')
    folder += '/';
  return folder + library;
}

void board_t::readFeatures()
{
  const std::string board = description();
  const bool onuBasedStates = nodeHas(capability_t::onuBasedStates);
  std::map<std::string, bool> features = {
      {"httpserver", nodeHas(capability_t::httpServer)},
      {"oltintervalstat", true},
      {"onubasedoltstates", onuBasedStates},
      {"legacyalarm", !onuBasedStates},
      {"sfpuplinkspeed", onuBasedStates},
      {"dsfec", nodeHas(capability_t::downstreamFec) || onuBasedStates},
      {"oltsfpmode", false},
      {"uplinksfpwhitelist", typeCode(board) == "BT9" || typeCode(board) == "BTA"},
  };
  if (board.empty())
    logAt(LogImpl::critical) << "BLLManager::loadBllFeatures: Cannot read board_id.\n";
  else
    features["lagmembership"] = findType(board) != nullptr;
  const mutex_guard guard(mutex_);
  features_ = std::move(features);
}

bool board_t::supports(const std::string& feature) const
{
  const mutex_guard guard(mutex_);
  const auto known = features_.find(feature);
  return known == features_.end() || known->second;
}

void board_t::setFeature(const std::string& feature, bool value, std::ostream& out)
{
  {
    const mutex_guard guard(mutex_);
    features_[feature] = value;
  }
  out << "Setting BLL feature '" << feature << "' to " << (value ? "True" : "False") << "\n";
}

void board_t::dumpFeatures(std::ostream& out) const
{
  std::map<std::string, bool> features;
  {
    const mutex_guard guard(mutex_);
    features = features_;
  }
  out << "Supported features:\n------------------\n";
  for (const auto& [name, value] : features)
    out << " " << name << ": " << (value ? "true" : "false") << "\n";
}
