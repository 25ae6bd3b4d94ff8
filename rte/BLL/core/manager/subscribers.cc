#include "rte/BLL/core/manager/subscribers.h"

#include "rte/BLL/core/bll_manager.h"
#include <algorithm>
#include <string_view>

namespace {

// Messages that begin so are for subscribers of their own, who get them without it.
constexpr std::string_view ownPrefix = "dhcpra:";

template <typename Subscriber, typename... Arguments>
void callEach(std::vector<Subscriber> subscribers, Arguments&&... arguments)
{
  for (const Subscriber& subscriber : subscribers)
    subscriber(arguments...);
}

}  // namespace

void subscribers_t::message(const std::string& message, const std::string& value, std::ostringstream& reply,
                            const std::string& tty) const
{
  if (message.starts_with(ownPrefix))
    callEach(lists_.prefixedMessageSubscribers, message.substr(ownPrefix.size()), value, tty);
  else
    callEach(lists_.externalMessageSubscribers, message, value, reply, tty);
}

bool subscribers_t::agreeToReload() const
{
  const auto subscribers = lists_.reloadRequestSubscribers;
  return std::ranges::all_of(subscribers, [](const auto& subscriber) { return subscriber(true); });
}

void subscribers_t::configurationApplied(int code) const
{
  callEach(lists_.configurationAppliedSubscribers, code);
}

void subscribers_t::preConfigurationApplying() const
{
  callEach(lists_.preConfigurationApplyingSubscribers);
}
