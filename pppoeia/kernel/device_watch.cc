#include "pppoeia/kernel/device_watch.h"

#include "platform/kvbridge/control.h"
#include "pppoeia/kernel/devices.h"
#include "pppoeia/kernel/kernel.h"
#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

// Has the device made, unless it is there, and brings it up. Says nothing: it is tried many times.
bool device_make(int sock, char* device)
{
  kernel_descriptor mng(kernel->open_control(kvmng_path));
  if (!mng)
    return false;
  const bool made = kernel->control(mng.get(), kvmng_device_create, device) == 0 || errno == EEXIST;
  mng.reset();
  short flags = 0;
  return made && kernel->link_flags_get(sock, device, &flags) >= 0 &&
         kernel->link_flags_set(sock, device, static_cast<short>(flags | link_flag_up)) >= 0;
}

}  // namespace

device_watch::device_watch(pppoeia_bridge& bridge) : bridge_(bridge)
{
  kernel->link_index(bridge.sock, bridge.dev_name, &index_);
}

void device_watch::failed(int error)
{
  if (!lost_ && (error == ENETDOWN || error == ENODEV || error == ENXIO))
    lose();
}

void device_watch::lose()
{
  lost_ = true;
  pppoeia_log(log_warning, "<%s> Pseudo device '%s' is gone.", bridge_.name, bridge_.dev_name);
}

// The kernel takes a packet socket off a device that is deleted, and forgets which one it was. It tells the socket
// once, to whichever call comes first: a send may have swallowed it.
void device_watch::waited()
{
  constexpr unsigned waits_to_look = 100;
  constexpr unsigned waits_to_try = 10;
  if (++waits_ < (lost_ ? waits_to_try : waits_to_look))
    return;
  waits_ = 0;
  int index = -1;
  const bool same = kernel->link_index(bridge_.sock, bridge_.dev_name, &index) == 0 && index == index_;
  if (same && lost_)
    kernel->bind_packet(bridge_.sock, index);
  if (same)
    return;
  if (!lost_)
    lose();
  kernel_descriptor control_file(bridge_control_open(bridge_.name));
  if (control_file && restore(control_file.get()))
    kernel->close(std::exchange(bridge_.ctl_fd, control_file.release()));
}

bool device_watch::restore(int control_file)
{
  int index = -1;
  if (!device_make(bridge_.sock, bridge_.dev_name) || bridge_filter_attach(control_file, bridge_.dev_name) < 0 ||
      kernel->link_index(bridge_.sock, bridge_.dev_name, &index) < 0 || kernel->bind_packet(bridge_.sock, index) < 0)
    return false;
  index_ = index;
  lost_ = false;
  pppoeia_log(log_info, "<%s> Pseudo device '%s' is back.", bridge_.name, bridge_.dev_name);
  compare(control_file);
  return true;
}

// What a bridge takes from the kernel is fixed for its life.
void device_watch::compare(int control_file) const
{
  int mtu = bridge_.mtu;
  kvbridge_info info{};
  info.stag_ethertype = bridge_.stag_ethertype;
  kernel->link_mtu(bridge_.sock, bridge_.dev_name, &mtu);
  kernel->control(control_file, kvbridge_info_get, &info);
  if (mtu != bridge_.mtu || info.stag_ethertype != bridge_.stag_ethertype)
    pppoeia_log(log_warning, "<%s> MTU or S-Tag EtherType have changed: delete the bridge and add it again.",
                bridge_.name);
}

void refusal_log::refused(const send_refusals& refusals)
{
  if (count_ == 0) {
    told_at_ = clock::now();
    pppoeia_log(log_warning, "<%s> Pseudo device '%s' refuses records: %s (%u bytes).", bridge_.name, bridge_.dev_name,
                std::strerror(refusals.error), refusals.length);
  }
  count_ += refusals.count;
}

void refusal_log::taken()
{
  if (clock::now() - told_at_ < quiet_)
    return;
  pppoeia_log(log_warning, "<%s> Pseudo device '%s' takes records again, %llu were refused.", bridge_.name,
              bridge_.dev_name, static_cast<unsigned long long>(std::exchange(count_, 0)));
}
