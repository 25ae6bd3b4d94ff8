// What the modules ask of a bridge, whichever way its frames go.
#ifndef PLATFORM_KVBRIDGED_AGENT_BRIDGE_H
#define PLATFORM_KVBRIDGED_AGENT_BRIDGE_H

#include "platform/kvbridged/frame.h"
#include "platform/kvbridged/settings.h"

#include <string>

namespace kvbridged {

class agent_bridge {
public:
  explicit agent_bridge(bridge_settings settings) : settings_(std::move(settings)) {}
  virtual ~agent_bridge() = default;
  agent_bridge(const agent_bridge&) = delete;
  agent_bridge& operator=(const agent_bridge&) = delete;

  const bridge_settings& settings() const { return settings_; }

  // Diverts discovery frames to the pseudo device whose descriptor this is, until detach() or stop().
  virtual void attach(int device) = 0;
  // No agent has to do with the bridge.
  virtual void detach() = 0;
  // An agent was there and is to come back: keeps discovery frames from passing, until attach() or detach().
  virtual void stop() = 0;

  // Takes what the agent gave back.
  virtual void from_agent(frame_view record) = 0;

  // "br0: to agent 12, from agent 12, ...".
  virtual std::string statistics() const = 0;

protected:
  const bridge_settings settings_;
};

}  // namespace kvbridged

#endif
