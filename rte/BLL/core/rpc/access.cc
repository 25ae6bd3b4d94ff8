#include "rte/BLL/core/rpc/access.h"

#include "base/thread_annotations.h"
#include "rte/BLL/core/log/log_line.h"
#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <grp.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <pwd.h>
#include <set>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

struct request_t {
  nlmsghdr header;
  inet_diag_req_v2 what;
};

class diagnosis_t {
public:
  diagnosis_t() : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG))
  {
    const timeval patience = {1, 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  ~diagnosis_t()
  {
    if (fd_ >= 0)
      close(fd_);
  }
  diagnosis_t(const diagnosis_t&) = delete;
  diagnosis_t& operator=(const diagnosis_t&) = delete;

  // Appends the sockets that the kernel finds. False if it has not answered to the end.
  bool ask(const inet_diag_req_v2& what, bool all, std::vector<inet_diag_msg>& found);

private:
  enum class answer_t { more, complete, failed };
  static answer_t read(const char* bytes, size_t size, std::vector<inet_diag_msg>& found);

  int fd_;
};

bool diagnosis_t::ask(const inet_diag_req_v2& what, bool all, std::vector<inet_diag_msg>& found)
{
  request_t request = {};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | (all ? NLM_F_DUMP : 0));
  request.what = what;
  if (send(fd_, &request, sizeof request, 0) != sizeof request)
    return false;
  alignas(nlmsghdr) char bytes[32 * 1024];
  for (;;) {
    const ssize_t size = recv(fd_, bytes, sizeof bytes, 0);
    const answer_t answer = size > 0 ? read(bytes, static_cast<size_t>(size), found) : answer_t::failed;
    if (answer != answer_t::more || !all)
      return answer != answer_t::failed;
  }
}

diagnosis_t::answer_t diagnosis_t::read(const char* bytes, size_t size, std::vector<inet_diag_msg>& found)
{
  while (size >= sizeof(nlmsghdr)) {
    nlmsghdr header;
    std::memcpy(&header, bytes, sizeof header);
    if (header.nlmsg_type == NLMSG_DONE)
      return answer_t::complete;
    if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY || header.nlmsg_len > size ||
        header.nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg)))
      return answer_t::failed;
    std::memcpy(&found.emplace_back(), bytes + NLMSG_HDRLEN, sizeof(inet_diag_msg));
    const size_t step = std::min<size_t>(NLMSG_ALIGN(header.nlmsg_len), size);
    bytes += step;
    size -= step;
  }
  return answer_t::more;
}

inet_diag_req_v2 inquiry(const rpcPeer_t& peer, uint8_t family)
{
  inet_diag_req_v2 what = {};
  what.sdiag_family = family;
  what.sdiag_protocol = static_cast<uint8_t>(peer.protocol);
  what.idiag_states = ~0U;
  what.id.idiag_sport = peer.caller.sin_port;
  what.id.idiag_cookie[0] = what.id.idiag_cookie[1] = static_cast<uint32_t>(INET_DIAG_NOCOOKIE);
  return what;
}

// The socket with both addresses. An IPv6 socket that talks to an IPv4 address is found by that.
bool findTcp(const rpcPeer_t& peer, std::vector<inet_diag_msg>& found)
{
  inet_diag_req_v2 what = inquiry(peer, AF_INET);
  what.id.idiag_dport = peer.own.sin_port;
  what.id.idiag_src[0] = peer.caller.sin_addr.s_addr;
  what.id.idiag_dst[0] = peer.own.sin_addr.s_addr;
  if (!diagnosis_t().ask(what, false, found) || found.size() != 1)
    return false;
  // In their stead the kernel finds a socket that listens at the caller's port.
  const inet_diag_msg& socket = found.front();
  const bool talks = socket.idiag_state == TCP_ESTABLISHED || socket.idiag_state == TCP_FIN_WAIT1 ||
                     socket.idiag_state == TCP_FIN_WAIT2;
  return talks && socket.id.idiag_sport == peer.caller.sin_port && socket.id.idiag_dport == peer.own.sin_port;
}

// All sockets with the caller's port, of whatever address: one may send from another's, and to another than the one
// that it is connected to.
bool findUdp(const rpcPeer_t& peer, std::vector<inet_diag_msg>& found)
{
  diagnosis_t kernel;
  return kernel.ask(inquiry(peer, AF_INET), true, found) && kernel.ask(inquiry(peer, AF_INET6), true, found);
}

bool isLoopback(const sockaddr_in& address)
{
  return ntohl(address.sin_addr.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
}

// The user who has made the caller's socket, as the kernel tells (NETLINK_SOCK_DIAG). Nothing if that cannot be told:
// the caller is not on the loopback interface or has closed the socket, sockets of several users share a UDP caller's
// port, or the kernel does not answer. Opens a descriptor for the time of the call; waits for the kernel a second at
// most.
std::optional<uid_t> socketOwner(const rpcPeer_t& peer)
{
  std::vector<inet_diag_msg> found;
  const bool answered = isLoopback(peer.caller) && (peer.protocol == IPPROTO_TCP ? findTcp : findUdp)(peer, found);
  if (!answered || found.empty())
    return {};
  const uid_t owner = found.front().idiag_uid;
  // A closed TCP socket lingers without inode; the kernel says that it is root's.
  const bool certain = std::ranges::all_of(
      found, [&](const inet_diag_msg& socket) { return socket.idiag_uid == owner && socket.idiag_inode != 0; });
  return certain ? std::optional(owner) : std::nullopt;
}

constexpr size_t largestEntry = 1024 * 1024;
constexpr gid_t nobodysGroup = 65534;  // as the kernel has it for a group that it cannot tell

struct allowed_t {
  checked_mutex mutex;
  std::set<uid_t> users TSA_GUARDED_BY(mutex);
  std::set<gid_t> groups TSA_GUARDED_BY(mutex);
};

allowed_t& allowed()
{
  static allowed_t& all = *new allowed_t;  // outlives the proxies
  return all;
}

// Looks up an entry of the user database by one of the getXXX_r() functions, and reads it if there is one.
template <typename Entry, typename Key, typename Read>
void lookUp(int (*get)(Key, Entry*, char*, size_t, Entry**), Key key, Read read)
{
  Entry entry = {};
  Entry* found = nullptr;
  std::string texts(1024, '\0');
  while (get(key, &entry, texts.data(), texts.size(), &found) == ERANGE && texts.size() < largestEntry)
    texts.resize(texts.size() * 2);
  if (found)
    read(*found);
}

std::vector<gid_t> groupsOf(const passwd& entry)
{
  std::vector<gid_t> groups(64);
  int count = static_cast<int>(groups.size());
  while (getgrouplist(entry.pw_name, entry.pw_gid, groups.data(), &count) < 0 && groups.size() < largestEntry) {
    groups.resize(std::max(groups.size() * 2, static_cast<size_t>(count)));
    count = static_cast<int>(groups.size());
  }
  groups.resize(std::min(groups.size(), static_cast<size_t>(count)));
  return groups;
}

// Whom the user database does not know has no groups.
caller callerOf(uid_t user)
{
  caller who{user, nobodysGroup, {}};
  lookUp(getpwuid_r, user, [&](const passwd& entry) {
    who.group = entry.pw_gid;
    who.groups = groupsOf(entry);
  });
  return who;
}

bool mayCall(const caller& who)
{
  if (who.user == 0 || who.user == geteuid())
    return true;
  allowed_t& all = allowed();
  const mutex_guard guard(all.mutex);
  return all.users.contains(who.user) || std::ranges::any_of(who.groups, [&](gid_t group) TSA_REQUIRES(all.mutex) {
           return all.groups.contains(group);
         });
}

void logRefusal(const std::optional<uid_t>& owner, const svc_req& request)
{
  static struct {
    checked_mutex mutex;
    rpcRefusals_t refusals TSA_GUARDED_BY(mutex);
  } told;
  const mutex_guard guard(told.mutex);
  const auto unsaid = told.refusals.tell(std::chrono::steady_clock::now());
  if (!unsaid)
    return;
  logAt(LogImpl::warning) << "RPC call to program " << std::to_string(request.rq_prog) << ", procedure "
                          << std::to_string(request.rq_proc) << ", by "
                          << (owner ? "user " + std::to_string(*owner) : std::string("an unknown user")) << " refused; "
                          << std::to_string(*unsaid) << " more since the last such line.\n";
}

}  // namespace

std::optional<unsigned> rpcRefusals_t::tell(std::chrono::steady_clock::time_point now)
{
  if (now < quietUntil_) {
    ++unsaid_;
    return {};
  }
  quietUntil_ = now + std::chrono::minutes(1);
  return std::exchange(unsaid_, 0);
}

bool rpcAllow(const std::string& userOrGroup)
{
  std::optional<uid_t> user;
  std::optional<gid_t> group;
  lookUp(getpwnam_r, userOrGroup.c_str(), [&](const passwd& entry) { user = entry.pw_uid; });
  lookUp(getgrnam_r, userOrGroup.c_str(), [&](const ::group& entry) { group = entry.gr_gid; });
  allowed_t& all = allowed();
  const mutex_guard guard(all.mutex);
  if (user)
    all.users.insert(*user);
  if (group)
    all.groups.insert(*group);
  return user || group;
}

std::optional<caller> rpcAdmit(const rpcPeer_t& peer, const svc_req& request)
{
  const std::optional<uid_t> owner = socketOwner(peer);
  if (owner)
    if (caller who = callerOf(*owner); mayCall(who))
      return who;
  logRefusal(owner, request);
  return {};
}
