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
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/manager/board.h"
#include "rte/BLL/core/manager/log_line.h"
#include "rte/BLL/core/manager/paths.h"
#include "rte/BLL/core/storage_mng.h"

#include "platform/nodeinfo/nodeinfo.h"
#include <fstream>

namespace {

// What configuration files call the board.
std::string fullBoardName(const std::string& description)
{
  const boardType_t* const type = findBoardType(description);
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

}  // namespace

void BLLManager::loadBllConfig()
{
  std::string board = getBoardDescription();
  if (board.empty()) {
    logAt(LogImpl::critical) << "BLLManager, Can not load bll configuration from XML.\n";
    return;
  }
  if (isActive(nodeCapability::fullBoardNames)) {
    board = fullBoardName(board);
    logAt(LogImpl::notice) << "BLLManager: load bll configuration from XML for " << board << " \n";
  }
  const std::string path = configurationPath();
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
      loadBllCfgForBoard(section);
}

// Takes over one section of the file; how many entities it names.
int BLLManager::loadBllCfgForBoard(boost::shared_ptr<Storage::Setting> board)
{
  const std::lock_guard guard(mutex_);
  int handled = 0;
  for (auto element = board->getSubSetting("BLE"); element; element = element->getNext()) {
    bleInfo_t info;
    info.name = element->getValue("Name");
    if (info.name.empty())
      continue;
    info.loadMode = loadModeOf(element->getValue("Load"));
    if (info.loadMode == 1)
      if (std::string library = element->getValue("Library"); !library.empty())
        libraries_.push_back(std::move(library));
    info.start = element->getValue("Start") == "true";
    configuration_[info.name] = info;
    ++handled;
  }
  return handled;
}
