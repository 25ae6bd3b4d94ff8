#include "rte/BLL/core/rpc/connection.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr uint32_t lastFragment = 0x80000000;
constexpr size_t markSize = sizeof(uint32_t);
constexpr size_t largestReply = lastFragment - 1;

bool mustWait()
{
  return errno == EAGAIN || errno == EINTR;
}

}  // namespace

rpcConnection_t::rpcConnection_t(int fd, const rpcService_t& service, const sockaddr_in& own, const sockaddr_in& caller)
    : service_(service), peer_{fd, IPPROTO_TCP, own, caller}
{}

rpcConnection_t::~rpcConnection_t()
{
  close(peer_.fd);
}

short rpcConnection_t::events() const
{
  return replies_.empty() ? POLLIN : POLLOUT;
}

bool rpcConnection_t::tend(const rpcAdmit_t& admit)
{
  if (!flush() || (replies_.empty() && !receive()))
    return false;
  while (replies_.empty() && takeRecord()) {
    const std::string reply = rpcAnswer(service_, record_, peer_, admit, largestReply);
    record_.clear();
    if (reply.empty())
      continue;
    const uint32_t mark = htonl(static_cast<uint32_t>(reply.size()) | lastFragment);
    replies_.append(reinterpret_cast<const char*>(&mark), markSize) += reply;
    if (!flush())
      return false;
  }
  return !tooLong_ && !(ended_ && replies_.empty());
}

bool rpcConnection_t::receive()
{
  char bytes[16 * 1024];
  const ssize_t count = recv(peer_.fd, bytes, sizeof bytes, 0);
  if (count < 0)
    return mustWait();
  ended_ = count == 0;
  received_.append(bytes, static_cast<size_t>(count));
  return true;
}

bool rpcConnection_t::flush()
{
  while (!replies_.empty()) {
    const ssize_t count = send(peer_.fd, replies_.data(), replies_.size(), MSG_NOSIGNAL);
    if (count < 0)
      return mustWait();
    replies_.erase(0, static_cast<size_t>(count));
  }
  return true;
}

// Moves whole fragments from the front of what was received to the record. True when that was its last one.
bool rpcConnection_t::takeRecord()
{
  size_t taken = 0;
  bool whole = false;
  while (!whole && received_.size() - taken >= markSize) {
    uint32_t mark;
    std::memcpy(&mark, received_.data() + taken, markSize);
    mark = ntohl(mark);
    const size_t length = mark & ~lastFragment;
    tooLong_ = record_.size() + length > largestRecord;
    if (tooLong_ || received_.size() - taken - markSize < length)
      break;
    record_.append(received_, taken + markSize, length);
    taken += markSize + length;
    whole = mark & lastFragment;
  }
  received_.erase(0, taken);
  return whole;
}
