// The end of the requests. What each of them takes and gives is the model's.
#include "pppoeia/operations/dispatcher.h"
#include "pppoeia/records.h"
#include "tests/support/api_fixture.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

int32_t log_level_asked()
{
  int32_t level = 0;
  ippcArg place{sizeof level, &level};
  ippcArg* places[] = {&place};
  ippcFuncData request{static_cast<uint16_t>(api::operation_id("pppoeia_log_level_get")), 1, 1, places, 0, 0};
  return pppoeia_ippc_dispatcher(&request);
}

// In a child: there is no way back.
TEST(Dispatcher, TheEndWaitsForTheRequestInHandAndRefusesTheNext)
{
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    api_fixture agent;
    pppoeia_bridge& bridge = *bridge_find("br0");
    api_call held("pppoeia_bridge_state_set");
    std::atomic<bool> over = false;
    pthread_mutex_lock(&bridge.mutex);
    std::thread request([&] { held.text("br0").u32(1).run(); });
    while (bridge.waiters == 0)
      std::this_thread::yield();
    std::thread end([&] { pppoeia_requests_end(), over = true; });
    while (log_level_asked() == 0)
      std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const bool waited = !over;
    pthread_mutex_unlock(&bridge.mutex);
    request.join();
    end.join();
    _exit(waited && held.status == 0 && log_level_asked() == -1 ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
