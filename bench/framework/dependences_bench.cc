// Ordering entities by their dependences: 2,000 entities with 10,000 edges, and how it grows.
#include "rte/BLL/core/bll_manager.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <unistd.h>

namespace {

struct entity_t : BLEntity {
  explicit entity_t(std::string entityName) : BLEntity(std::move(entityName)) {}
  void applyConfiguration(boost::shared_ptr<Storage::Setting>) override {}
  void saveConfiguration(boost::shared_ptr<Storage::Setting>) const override {}
  bool start() override { return true; }
  bool applyDefaultSettings() override { return true; }
  bool stop() override { return true; }
  void getDependences(std::list<std::string>& dependences) override { dependences = needs; }
  std::list<std::string> needs;
};

// A manager whose configuration starts `count` entities, with five edges each to earlier ones.
struct board_t {
  explicit board_t(size_t count)
  {
    const std::string folder = "/tmp/dependences-bench." + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/board") << "bench\n";
    std::ofstream config(folder + "/config.xml");
    config << "<a><BLL><BOARD Id='all_boards'>";
    for (size_t i = 0; i < count; ++i) {
      entities.push_back(std::make_unique<entity_t>("entity" + std::to_string(i)));
      config << "<BLE Name='" << entities.back()->name << "' Load='static' Start='true'/>";
    }
    config << "</BOARD></BLL></a>";
    config.close();
    setenv("BLL_BOARD_ID", (folder + "/board").c_str(), 1);
    setenv("BLL_CONFIG", (folder + "/config.xml").c_str(), 1);
    manager = std::make_unique<BLLManager>();
    std::filesystem::remove_all(folder);
    std::mt19937 random(1);
    for (size_t i = 0; i < count; ++i) {
      for (int edge = 0; edge < 5 && i > 0; ++edge)
        entities[i]->needs.push_back(entities[random() % i]->name);
      manager->registerEntity(*entities[i]);
    }
  }
  std::vector<std::unique_ptr<entity_t>> entities;
  std::unique_ptr<BLLManager> manager;
};

void orderEntities(benchmark::State& state)
{
  board_t board(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    std::list<std::string> order;
    if (!board.manager->resolveDependences(order))
      state.SkipWithError("a cycle");
    benchmark::DoNotOptimize(order);
  }
}
BENCHMARK(orderEntities)->Arg(20)->Arg(200)->Arg(2000)->Unit(benchmark::kMicrosecond);

}  // namespace
