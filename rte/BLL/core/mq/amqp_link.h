// One socket to a broker and the AMQP 0-9-1 frames on it.
//
// librabbitmq codes and decodes the frames, but its own calls are not used where they may wait: they send without a
// time limit and read on as long as anything arrives. So this class looks whether there is room before it lets the
// library send a small frame, and feeds the library what it reads itself.
#ifndef RTE_BLL_CORE_MQ_AMQP_LINK_H
#define RTE_BLL_CORE_MQ_AMQP_LINK_H

#include <amqp.h>
#include <array>
#include <chrono>
#include <string>

// Used by one thread at a time. Every wait ends at the deadline given. After a false the link is of no use but to be
// closed.
class AmqpLink {
public:
  using deadline_t = std::chrono::steady_clock::time_point;

  AmqpLink() = default;
  ~AmqpLink() { close(); }
  AmqpLink(const AmqpLink&) = delete;
  AmqpLink& operator=(const AmqpLink&) = delete;

  // Connects to an IP address and sends the protocol's opening bytes.
  bool open(const std::string& address, int port, deadline_t deadline);
  // Without the closing exchange: a broker that hangs must not hold its caller up.
  void close();
  // Between exchanges a broker has nothing to say; when it has, or has hung up, the link is at its end.
  bool isOpenAndQuiet() const;
  // The largest frame agreed on, at most `largestFrame`. 0 stands for the broker's "no limit".
  bool setFrameSize(uint32_t offered);
  uint32_t frameSize() const { return frameSize_; }

  // `method` is the library's record for `id`.
  bool send(amqp_channel_t channel, amqp_method_number_t id, void* method, deadline_t deadline);
  // The header and body that follow a publish.
  bool sendContent(amqp_channel_t channel, amqp_basic_properties_t& properties, const std::string& body,
                   deadline_t deadline);
  // The next frame of `channel` or of channel 0; others end the link. `frame` is good until the next call.
  bool receive(amqp_channel_t channel, amqp_frame_t& frame, deadline_t deadline);

private:
  static constexpr uint32_t largestFrame = 8192;   // small, so that the socket takes one whole or not at all
  static constexpr uint32_t smallestFrame = 4096;  // every broker must take these

  bool waitFor(short events, deadline_t deadline) const;
  bool sendFrame(const amqp_frame_t& frame, deadline_t deadline);
  bool fill(deadline_t deadline);

  amqp_connection_state_t state_ = nullptr;
  int socket_ = -1;  // owned by state_
  uint32_t frameSize_ = smallestFrame;
  std::array<char, 8192> input_;  // read but not decoded: [inputBegin_, inputEnd_)
  size_t inputBegin_ = 0;
  size_t inputEnd_ = 0;
};

#endif
