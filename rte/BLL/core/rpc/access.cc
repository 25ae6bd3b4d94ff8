#include "rte/BLL/core/rpc/access.h"

#include "rte/BLL/core/log/log_line.h"
#include "rte/BLL/core/rpc/socket_owner.h"
#include <algorithm>
#include <grp.h>
#include <mutex>
#include <pwd.h>
#include <set>
#include <unistd.h>
#include <utility>

namespace {

constexpr size_t largestEntry = 1024 * 1024;
constexpr gid_t nobodysGroup = 65534;  // as the kernel has it for a group that it cannot tell

struct allowed_t {
  std::mutex mutex;
  std::set<uid_t> users;
  std::set<gid_t> groups;
};

allowed_t& allowed()
{
  static allowed_t& all = *new allowed_t;  // outlives the proxies
  return all;
}

// Looks up an entry of the user database by one of the getXXX_r() functions, and reads it. False if there is none.
template <typename Entry, typename Key, typename Read>
bool lookUp(int (*get)(Key, Entry*, char*, size_t, Entry**), Key key, Read read)
{
  Entry entry = {};
  Entry* found = nullptr;
  std::string texts(1024, '\0');
  while (get(key, &entry, texts.data(), texts.size(), &found) == ERANGE && texts.size() < largestEntry)
    texts.resize(texts.size() * 2);
  if (found)
    read(*found);
  return found;
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
  const std::lock_guard guard(all.mutex);
  return all.users.contains(who.user) ||
         std::ranges::any_of(who.groups, [&](gid_t group) { return all.groups.contains(group); });
}

void logRefusal(const std::optional<uid_t>& owner, const svc_req& request)
{
  static std::mutex mutex;
  static rpcRefusals_t refusals;
  const std::lock_guard guard(mutex);
  const auto unsaid = refusals.tell(std::chrono::steady_clock::now());
  if (!unsaid)
    return;
  logAt(LogImpl::warning) << "RPC call to program " << request.rq_prog << ", procedure " << request.rq_proc << ", by "
                          << (owner ? "user " + std::to_string(*owner) : std::string("an unknown user")) << " refused; "
                          << *unsaid << " more since the last such line.\n";
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
  allowed_t& all = allowed();
  const std::lock_guard guard(all.mutex);
  const bool user =
      lookUp(getpwnam_r, userOrGroup.c_str(), [&](const passwd& entry) { all.users.insert(entry.pw_uid); });
  const bool group =
      lookUp(getgrnam_r, userOrGroup.c_str(), [&](const ::group& entry) { all.groups.insert(entry.gr_gid); });
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
