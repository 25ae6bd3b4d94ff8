// Who is called of those that have subscribed, and with what.
#include "rte/BLL/core/manager/subscribers.h"

#include "tests/framework/manager_support.h"

namespace {

using namespace manager_test;
using testing::ElementsAre;
using testing::IsEmpty;

class ManagerSubscribers : public ManagerTest {
protected:
  std::string answers(const std::string& message)
  {
    std::ostringstream reply;
    subscribers.message(message, "value", reply, "tty");
    return reply.str();
  }
  void answerWith(const std::string& text)
  {
    manager().externalMessageSubscribers.emplace_back([text](const std::string&, const std::string&,
                                                             std::ostringstream& reply,
                                                             const std::string&) { reply << text; });
  }

  const subscribers_t subscribers{manager()};
};

TEST_F(ManagerSubscribers, AMessageIsForOneListByItsPrefix)
{
  names_t got;
  manager().prefixedMessageSubscribers.emplace_back(
      [&](const std::string& message, const std::string& value, const std::string& tty) {
        got = {message, value, tty};
      });
  answerWith("first, ");
  answerWith("second");
  EXPECT_EQ(answers("dhcpra:show"), "");
  EXPECT_THAT(got, ElementsAre("show", "value", "tty"));
  got.clear();
  EXPECT_EQ(answers("show"), "first, second");
  EXPECT_THAT(got, IsEmpty());
}

TEST_F(ManagerSubscribers, WhoSubscribesInACallIsCalledFromTheNextOn)
{
  answerWith("before ");
  manager().externalMessageSubscribers.emplace_back(
      [&](const std::string&, const std::string&, std::ostringstream&, const std::string&) { answerWith("new "); });
  answerWith("behind ");
  EXPECT_EQ(answers("any"), "before behind ");
  EXPECT_EQ(answers("any"), "before behind new ");

  int asked = 0;
  manager().reloadRequestSubscribers.emplace_back([&](bool) {
    for (int i = 0; i < 100; ++i)  // enough to move the list to another place
      manager().reloadRequestSubscribers.emplace_back([&](bool) { return ++asked < 3; });
    return true;
  });
  EXPECT_TRUE(subscribers.agreeToReload());
  EXPECT_EQ(asked, 0);
  EXPECT_FALSE(subscribers.agreeToReload());
  EXPECT_EQ(asked, 3);
}

TEST_F(ManagerSubscribers, WhatOneThrowsEndsTheRound)
{
  answerWith("before");
  manager().externalMessageSubscribers.emplace_back();
  answerWith("behind");
  std::ostringstream reply;
  EXPECT_THROW(subscribers.message("any", "", reply, ""), boost::bad_function_call);
  EXPECT_EQ(reply.str(), "before");
}

}  // namespace
