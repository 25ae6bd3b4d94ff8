// Messages between the processors of a node: named queues, whoever keeps them.
#ifndef RTE_BLL_CORE_INTER_SOC_MQ_H
#define RTE_BLL_CORE_INTER_SOC_MQ_H

#include <string>

// Any thread may call. Nothing is thrown, and every wait is bounded.
class InterSocMq {
public:
  virtual ~InterSocMq() = default;

  // Puts a message of any bytes at the end of the queue, which is made if it does not exist. True only when the queue's
  // keeper has confirmed that it has the message; after false it may have it or not.
  virtual bool publish(const std::string& queue, const std::string& message) = 0;
  // Takes the message at the head of the queue, waiting for one at most `timeout_ms`; 0 or less looks once. False, and
  // `message` as it was, if none has come or the queue cannot be reached. A message may come twice when a connection
  // breaks while it is being taken, but none gets lost.
  virtual bool consume(const std::string& queue, std::string& message, int timeout_ms) = 0;
};

#endif
