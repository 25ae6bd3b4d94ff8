// A board's configuration file of any content: read by a manager, then walked, changed, saved and read back as a
// settings document.
#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/storage_mng.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

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
    std::cerr.setstate(std::ios::failbit);  // where the reasons of a failed load go
    std::atexit([] {
      unlink(filePath().c_str());
      unlink((filePath() + ".board").c_str());
    });
    return new std::string(name);
  }();
  return path;
}

// Looks at elements under `setting`, as many as a run has time for: walks overlap, since they do not look at names.
void walk(const boost::shared_ptr<Storage::Setting>& setting, int depth, int& visits)
{
  for (const char* name : {"Name", "Id", "a"})
    if (setting->getValue(name).size() > 10'000'000)
      std::abort();
  for (const char* name : {"BLL", "BOARD", "BLE", "a"})
    for (auto child = setting->getSubSetting(name); child && depth < 20 && visits > 0; child = child->getNext())
      walk(child, depth + 1, --visits);
}

// Any bytes are a value, and a document that was read is read again when it has been saved.
void changeAndReadBack(Storage::StorageMng& store, const std::string& value)
{
  const auto added = store.addRoot("added");
  added->setValue("value", value);
  if (added->getValue("value") != value || !store.save(filePath() + ".saved"))
    std::abort();
  Storage::StorageMng again;
  if (!again.load(filePath() + ".saved"))
    std::abort();
  auto last = again.getRoot("added");
  for (auto next = last; next; next = next->getNext())
    last = next;
  if (!last || last->getValue("value") != value)
    std::abort();
  unlink((filePath() + ".saved").c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::ofstream(filePath(), std::ios::binary) << text;
  BLLManager manager;
  for (const std::string& name : manager.getActiveBLEsList())
    manager.checkBllEntity(name);
  manager.loadDynamicLibs();

  Storage::StorageMng store;
  if (!store.load(filePath()))
    return 0;
  int visits = 1000;
  for (const char* name : {"BLL", "BOARD", "a"})
    if (const auto root = store.getRoot(name))
      walk(root, 0, visits);
  changeAndReadBack(store, text.substr(0, 200));
  return 0;
}
