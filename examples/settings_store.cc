// How a plug-in keeps its configuration: fills the element that it is handed, and walks it when it comes back.
#include "rte/BLL/core/storage_mng.h"
#include <cstdio>
#include <iostream>
#include <map>
#include <string>
#include <unistd.h>

namespace {

using setting_t = boost::shared_ptr<Storage::Setting>;

std::map<std::string, std::string> speeds;  // of the ports, by their ids

// What an entity does in saveConfiguration().
void save(const setting_t& setting)
{
  if (!setting)
    return;  // the entity's name is none that XML allows
  setting->setValue("Version", "1");
  for (const auto& [id, speed] : speeds) {
    const setting_t port = setting->addSubSetting("Port");
    port->setValue("Id", id);
    port->setValue("Speed", speed);
  }
}

// What an entity does in applyConfiguration(). An empty pointer says that there is nothing for it in the file.
void apply(const setting_t& setting)
{
  speeds = {{"1", "1000"}};  // built in
  if (!setting)
    return;
  speeds.clear();
  for (setting_t port = setting->getSubSetting("Port"); port; port = port->getNext())
    if (const std::string id = port->getValue("Id"); !id.empty())  // the walk passes elements of any name
      speeds[id] = port->getValue("Speed");
}

}  // namespace

int main()
{
  const std::string file = "/tmp/settings_store." + std::to_string(getpid()) + ".xml";
  apply(nullptr);
  speeds["2"] = "10000";
  Storage::StorageMng store;
  save(store.addRoot("ports"));
  const bool saved = store.save(file);
  speeds.clear();
  const bool loaded = store.load(file);
  apply(store.getRoot("ports"));
  std::remove(file.c_str());
  std::cout << "\n";
  for (const auto& [id, speed] : speeds)
    std::cout << "port " << id << ": " << speed << "\n";
  return saved && loaded && speeds.size() == 2 ? 0 : 1;
}
