// Which procedure may run where in the manager's life.
#include "rte/BLL/core/manager/state.h"

#include "tests/framework/manager_support.h"

namespace {

using namespace manager_test;
using testing::ElementsAre;

class ManagerState : public ManagerTest {
protected:
  ManagerState()
  {
    manager();  // whoever installs the log
    logged();
  }
  // "configure start default stop", those of them that may run now.
  std::string allowed() const
  {
    std::string names;
    for (const auto& [name, procedure] : procedures)
      if (state.allows(procedure))
        names += (names.empty() ? "" : " ") + std::string(name);
    return names;
  }

  static constexpr std::pair<const char*, procedure_t> procedures[] = {{"configure", procedure_t::applyConfiguration},
                                                                       {"start", procedure_t::start},
                                                                       {"default", procedure_t::applyDefaultSettings},
                                                                       {"stop", procedure_t::stop}};
  lifeState_t state;
};

TEST_F(ManagerState, LeadsFromConfigurationToStopAndBack)
{
  EXPECT_EQ(allowed(), "configure");
  EXPECT_TRUE(state.takesEntities());
  state.completed(procedure_t::applyConfiguration);
  EXPECT_EQ(allowed(), "start");
  EXPECT_FALSE(state.takesEntities());
  for (int i = 0; i < 2; ++i) {
    state.completed(procedure_t::start);
    EXPECT_EQ(allowed(), "default stop");
    state.completed(procedure_t::applyDefaultSettings);
    EXPECT_EQ(allowed(), "default stop");
    state.completed(procedure_t::stop);
    EXPECT_EQ(allowed(), "start");
  }
}

TEST_F(ManagerState, TheLogTellsOfARefusal)
{
  allowed();
  EXPECT_THAT(logged(), ElementsAre("<<< Error: BLL is not configured or is already running.\n",
                                    "<<< Error: BLL is not running.\n",
                                    "<<< Error stopping BLL: BLL not in the started state.\n"));
  state.completed(procedure_t::applyConfiguration);
  EXPECT_FALSE(state.allows(procedure_t::applyConfiguration));
  EXPECT_THAT(logged(), ElementsAre("<<< Error applying configuration: BLL is not initialized.\n"));
}

}  // namespace
