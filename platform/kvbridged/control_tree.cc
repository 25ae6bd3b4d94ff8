#define FUSE_USE_VERSION 35
#include "platform/kvbridged/control_tree.h"

#include "platform/kvbridge/control.h"
#include "platform/kvbridged/caller_memory.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fuse_lowlevel.h>
#include <optional>
#include <vector>

namespace kvbridged {
namespace {

// Fixed inodes, then two a bridge: its directory and its file.
constexpr fuse_ino_t mng_dir = 2, kvbridge_dir = 3, mng_config = 4, kvbridge_config = 5, first_bridge = 16;

// The kernel keeps no answers, so that a tree whose kvbridged is gone is seen to be dead at once.
constexpr double keep_seconds = 0;

struct node {
  fuse_ino_t inode;
  std::string name;
  bool directory;
};

control_tree::requests& state_of(fuse_req_t request)
{
  return *static_cast<control_tree::requests*>(fuse_req_userdata(request));
}

modules& of(fuse_req_t request)
{
  return state_of(request).all;
}

bool is_root(fuse_req_t request)
{
  return fuse_req_ctx(request)->uid == 0;
}

fuse_ino_t bridge_dir(size_t bridge)
{
  return first_bridge + 2 * bridge;
}

std::optional<size_t> bridge_of_file(const modules& all, fuse_ino_t inode)
{
  const bool file = inode >= first_bridge && (inode - first_bridge) % 2 == 1;
  const size_t bridge = file ? (inode - first_bridge) / 2 : all.bridge_count();
  return bridge < all.bridge_count() ? std::optional(bridge) : std::nullopt;
}

bool is_directory(fuse_ino_t inode)
{
  return inode <= kvbridge_dir || (inode >= first_bridge && (inode - first_bridge) % 2 == 0);
}

std::vector<node> children_of(const modules& all, fuse_ino_t parent)
{
  std::vector<node> children;
  if (parent == FUSE_ROOT_ID)
    return {{mng_dir, "mng", true}, {kvbridge_dir, "kvbridge", true}};
  if (parent == mng_dir)
    return {{mng_config, "config", false}};
  if (parent == kvbridge_dir) {
    children.push_back({kvbridge_config, "config", false});
    for (size_t i = 0; i < all.bridge_count(); ++i)
      children.push_back({bridge_dir(i), all.settings(i).name, true});
    return children;
  }
  return {{parent + 1, "bridge", false}};
}

struct stat attributes_of(fuse_ino_t inode)
{
  struct stat attributes {};
  attributes.st_ino = inode;
  attributes.st_mode = is_directory(inode) ? S_IFDIR | 0500 : S_IFREG | 0400;
  attributes.st_nlink = 1;
  return attributes;
}

void lookup(fuse_req_t request, fuse_ino_t parent, const char* name)
{
  for (const node& child : children_of(of(request), parent)) {
    if (child.name != name)
      continue;
    fuse_entry_param entry{};
    entry.attr_timeout = entry.entry_timeout = keep_seconds;
    entry.ino = child.inode;
    entry.attr = attributes_of(child.inode);
    fuse_reply_entry(request, &entry);
    return;
  }
  fuse_reply_err(request, ENOENT);
}

void getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*)
{
  const struct stat attributes = attributes_of(inode);
  fuse_reply_attr(request, &attributes, keep_seconds);
}

void readdir(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset, fuse_file_info*)
{
  std::string listing;
  const std::vector<node> children = children_of(of(request), inode);
  for (size_t i = static_cast<size_t>(offset); i < children.size(); ++i) {
    const struct stat attributes = attributes_of(children[i].inode);
    const char* name = children[i].name.c_str();
    const size_t used = listing.size();
    const size_t need = fuse_add_direntry(request, nullptr, 0, name, nullptr, 0);
    if (used + need > size)
      break;
    listing.resize(used + need);
    fuse_add_direntry(request, listing.data() + used, need, name, &attributes, static_cast<off_t>(i + 1));
  }
  fuse_reply_buf(request, listing.data(), listing.size());
}

void open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* file)
{
  if (is_directory(inode)) {
    fuse_reply_err(request, EISDIR);
    return;
  }
  if (!is_root(request)) {
    fuse_reply_err(request, EACCES);
    return;
  }
  file->fh = ++state_of(request).opens;
  fuse_reply_open(request, file);
}

void release(fuse_req_t request, fuse_ino_t inode, fuse_file_info* file)
{
  const auto bridge = bridge_of_file(of(request), inode);
  if (bridge && state_of(request).filter_opens[*bridge] == file->fh)
    of(request).bridge_closed(*bridge);
  fuse_reply_err(request, 0);
}

// A NUL-terminated name of at most `size` - 1 characters.
std::string name_in(const std::string& bytes, size_t at, size_t size)
{
  if (at >= bytes.size())
    return {};
  const std::string field = bytes.substr(at, size);
  return field.substr(0, field.find('\0'));
}

void reply_number(fuse_req_t request, int32_t number)
{
  fuse_reply_ioctl(request, 0, &number, sizeof number);
}

void reply_status(fuse_req_t request, int error)
{
  if (error != 0)
    fuse_reply_err(request, error);
  else
    fuse_reply_ioctl(request, 0, nullptr, 0);
}

std::string argument_bytes(fuse_req_t request, const void* address, size_t size)
{
  return caller_bytes(fuse_req_ctx(request)->pid, address, size);
}

std::string device_named(fuse_req_t request, const void* address)
{
  return name_in(argument_bytes(request, address, device_name_size), 0, device_name_size);
}

void mng_request(fuse_req_t request, unsigned code, const void* argument)
{
  modules& all = of(request);
  if (code == kvmng_version_get)
    reply_number(request, kvmng_version_expected);
  else if (code == kvmng_device_create)
    reply_status(request, all.device_create(device_named(request, argument)));
  else if (code == kvmng_device_delete)
    reply_status(request, all.device_delete(device_named(request, argument), process_of(fuse_req_ctx(request)->pid)));
  else
    fuse_reply_err(request, ENOTTY);
}

void filter_request(fuse_req_t request, size_t bridge, const void* argument, uint64_t owner)
{
  const std::string record = argument_bytes(request, argument, sizeof(kvbridge_filter));
  const int error = of(request).filter_attach(
      bridge, name_in(record, offsetof(kvbridge_filter, filter), sizeof kvbridge_filter::filter),
      name_in(record, offsetof(kvbridge_filter, device), sizeof kvbridge_filter::device),
      process_of(fuse_req_ctx(request)->pid));
  if (error == 0)
    state_of(request).filter_opens[bridge] = owner;
  reply_status(request, error);
}

void bridge_request(fuse_req_t request, size_t bridge, unsigned code, const void* argument, uint64_t owner)
{
  if (code == kvbridge_info_get)
    reply_number(request, of(request).settings(bridge).stag_ethertype);
  else if (code == kvbridge_filter_attach)
    filter_request(request, bridge, argument, owner);
  else
    fuse_reply_err(request, ENOTTY);
}

void ioctl(fuse_req_t request, fuse_ino_t inode, unsigned code, void* argument, fuse_file_info* file, unsigned flags,
           const void*, size_t, size_t)
{
  if (!is_root(request))
    fuse_reply_err(request, EACCES);
  else if (flags & FUSE_IOCTL_COMPAT)
    fuse_reply_err(request, ENOSYS);
  else if (inode == mng_config)
    mng_request(request, code, argument);
  else if (inode == kvbridge_config && code == kvbridge_version_get)
    reply_number(request, kvbridge_version_expected);
  else if (const auto bridge = bridge_of_file(of(request), inode))
    bridge_request(request, *bridge, code, argument, file->fh);
  else
    fuse_reply_err(request, ENOTTY);
}

// An exception must not cross the library, and no request may stay without an answer.
template <auto Serve, typename... Arguments>
void guarded(fuse_req_t request, Arguments... arguments)
{
  try {
    Serve(request, arguments...);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kvbridged: a request failed: %s\n", error.what());
    fuse_reply_err(request, EIO);
  }
}

fuse_lowlevel_ops operations()
{
  fuse_lowlevel_ops ops{};
  ops.lookup = guarded<lookup>;
  ops.getattr = guarded<getattr>;
  ops.readdir = guarded<readdir>;
  ops.open = guarded<open>;
  ops.release = guarded<release>;
  ops.ioctl = guarded<ioctl>;
  return ops;
}

}  // namespace

control_tree::control_tree(modules& modules, loop& events, const std::string& mount_point)
    : events_(events), requests_{modules}
{
  char program[] = "kvbridged";
  char options[] = "-ofsname=kvbridged";
  char* argv[] = {program, options, nullptr};
  fuse_args args = FUSE_ARGS_INIT(2, argv);
  const fuse_lowlevel_ops ops = operations();
  session_ = fuse_session_new(&args, &ops, sizeof ops, &requests_);
  fuse_opt_free_args(&args);
  if (!session_ || fuse_session_mount(session_, mount_point.c_str()) != 0) {
    if (session_)
      fuse_session_destroy(session_);
    throw fatal("cannot mount a file system (FUSE) at " + mount_point);
  }
  events_.watch(fuse_session_fd(session_), [this] { serve(); });
}

control_tree::~control_tree()
{
  events_.forget(fuse_session_fd(session_));
  fuse_session_unmount(session_);
  fuse_session_destroy(session_);
}

void control_tree::serve()
{
  fuse_buf buffer{};
  const int size = fuse_session_receive_buf(session_, &buffer);
  if (size > 0)
    fuse_session_process_buf(session_, &buffer);
  std::free(buffer.mem);
  if (fuse_session_exited(session_))
    throw fatal("the control files were unmounted by somebody else");
}

}  // namespace kvbridged
