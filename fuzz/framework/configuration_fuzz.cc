// A board's configuration file of any content: read by a manager, then walked, changed, saved and read back as a
// settings document.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/storage_mng.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <libxml/xmlerror.h>
#include <string>
#include <unistd.h>

namespace {

void ignoreError(void*, const char*, ...) {}

// A file of this process's own, in memory where the system has such a place.
const std::string& filePath()
{
  static const std::string& path = *[] {
    const std::string base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    const std::string name = base + "/configuration-fuzz." + std::to_string(getpid());
    const std::string board = name + ".board";
    std::ofstream(board) << "BT5\n";
    setenv("BLL_BOARD_ID", board.c_str(), 1);
    setenv("BLL_CONFIG", name.c_str(), 1);
    setenv("BLL_LIB_DIR", "/nonexistent", 1);
    if (!std::freopen("/dev/null", "w", stdout))
      std::abort();
    std::atexit([] {
      unlink(filePath().c_str());
      unlink((filePath() + ".board").c_str());
    });
    return new std::string(name);
  }();
  return path;
}

// Looks at every element under `setting`, so deep as a stack may.
size_t walk(const boost::shared_ptr<Storage::Setting>& setting, int depth)
{
  size_t length = setting->getValue("Name").size() + setting->getValue("Id").size();
  for (const char* name : {"BLL", "BOARD", "BLE", "a"})
    for (auto child = setting->getSubSetting(name); child && depth < 20; child = child->getNext())
      length += walk(child, depth + 1);
  return length;
}

void changeAndReadBack(Storage::StorageMng& store, const std::string& text)
{
  const auto added = store.addRoot("added");
  if (!added)
    return;
  added->setValue("text", text);
  const std::string kept = added->getValue("text");
  if (!store.save(filePath() + ".saved"))
    std::abort();
  Storage::StorageMng again;
  // A document that had two attributes of one name cannot be read back; one that can, says the same.
  if (again.load(filePath() + ".saved")) {
    auto found = again.getRoot("added");
    for (auto next = found; next; next = next->getNext())
      found = next;
    if (found && found->getValue("text") != kept)
      std::abort();
  }
  unlink((filePath() + ".saved").c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  xmlSetGenericErrorFunc(nullptr, ignoreError);
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::ofstream(filePath(), std::ios::binary) << text;
  BLLManager manager;
  for (const std::string& name : manager.getActiveBLEsList())
    manager.checkBllEntity(name);
  manager.loadDynamicLibs();

  Storage::StorageMng store;
  if (!store.load(filePath()))
    return 0;
  for (const char* name : {"BLL", "BOARD", "a"})
    if (const auto root = store.getRoot(name))
      walk(root, 0);
  changeAndReadBack(store, text.substr(0, 200));
  return 0;
}
