// The thread behind the RPC services: starting, stopping, starting again, and what throws on it. No port mapper runs,
// so nothing is registered; tests/system/framework_host_test.cc serves clients.
#include "rte/BLL/core/rpc_proxy.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;
using testing::ContainsRegex;

std::atomic<int> calls;
RPCProxy* own;

void* countCall(void* interruptCheck)
{
  EXPECT_NE(*static_cast<void (**)()>(interruptCheck), nullptr);
  ++calls;
  return nullptr;
}

void* serveItself(void* interruptCheck)
{
  for (;; std::this_thread::sleep_for(1ms))
    (*static_cast<void (**)()>(interruptCheck))();
}

void* stopItself(void*)
{
  EXPECT_TRUE(own->start());
  EXPECT_FALSE(own->isStopped());
  EXPECT_TRUE(own->stop(true));
  ++calls;
  return nullptr;
}

void* throwIt(void*)
{
  if (++calls % 2)
    throw std::runtime_error("no service");
  throw 7;
}

struct RpcProxy : testing::Test {
  RpcProxy() { calls = 0; }
  static void await(RPCProxy& proxy)
  {
    for (int tries = 0; tries < 5000 && !proxy.isStopped(); ++tries)
      std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(proxy.isStopped());
  }
};

TEST_F(RpcProxy, ServesUntilItIsStoppedAndMayStartAgain)
{
  testing::internal::CaptureStderr();
  RPCProxy proxy(countCall, "dhcpra_fun");
  EXPECT_TRUE(proxy.isStopped());
  EXPECT_TRUE(proxy.stop(true));
  const auto began = std::chrono::steady_clock::now();
  for (int round = 1; round <= 3; ++round) {
    EXPECT_TRUE(proxy.start());
    EXPECT_TRUE(proxy.start());
    while (calls < round)
      std::this_thread::yield();
    EXPECT_FALSE(proxy.isStopped());
    EXPECT_TRUE(proxy.stop(true));
    EXPECT_TRUE(proxy.isStopped());
  }
  EXPECT_LT(std::chrono::steady_clock::now() - began, 15s);
  EXPECT_EQ(calls, 3);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              ContainsRegex("^(\\[[0-9]+\\] dhcpra_fun: Starting main RPC loop - custom made.\n"
                            "\\[[0-9]+\\] dhcpra_fun: RPC main loop stopping.\n)+$"));
}

TEST_F(RpcProxy, AnyOtherNameEndsWithItsStartFunction)
{
  testing::internal::CaptureStderr();
  RPCProxy once(countCall, "other");
  EXPECT_TRUE(once.start());
  await(once);
  RPCProxy looping(serveItself, "other");
  EXPECT_TRUE(looping.start());
  EXPECT_TRUE(looping.stop(true));
  RPCProxy selfish(stopItself, "dhcpra_fun");
  own = &selfish;
  EXPECT_TRUE(selfish.start());
  await(selfish);
  EXPECT_EQ(calls.exchange(0), 2);
  RPCProxy failing(throwIt, "other");
  for (int times = 0; times < 2; ++times) {
    EXPECT_TRUE(failing.start());
    await(failing);
  }
  const std::string line = "\\[[0-9]+\\] other: RPC main loop stopping \\(";
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              ContainsRegex(line + "no service\\).\n" + line + "something that is no std::exception\\).\n$"));
}

TEST_F(RpcProxy, ManyThreadsMaySteerOne)
{
  testing::internal::CaptureStderr();
  RPCProxy proxy(countCall, "dhcpra_fun");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i)
        t % 2 ? proxy.start() : proxy.stop(i % 2);
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_TRUE(proxy.stop(true));
  testing::internal::GetCapturedStderr();
}

struct calledByProxy_t {
  ~calledByProxy_t()
  {
    gone = true;
    std::this_thread::sleep_for(50ms);  // for a thread that still runs to find it so
  }
  std::atomic<bool> gone = false;
};

TEST(RpcProxyDeathTest, EndsBeforeTheObjectsThatItCalls)
{
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        static calledByProxy_t called;
        static RPCProxy& proxy = *new RPCProxy(
            [](void* interruptCheck) -> void* {
              for (++calls;; std::this_thread::yield()) {
                if (called.gone)
                  abort();
                (*static_cast<void (**)()>(interruptCheck))();
              }
            },
            "other");
        proxy.start();
        while (calls == 0)
          std::this_thread::yield();
        exit(7);
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
