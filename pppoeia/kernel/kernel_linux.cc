// The agent's platform file: every socket, control request and device look-up it makes.
#include "pppoeia/kernel/kernel.h"

#include "pppoeia/kernel/receive_ring.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

static_assert(link_flag_up == IFF_UP);

namespace {

ifreq request_for(const char* device)
{
  ifreq request{};
  const size_t length = std::min(std::strlen(device), sizeof request.ifr_name - 1);
  std::memcpy(request.ifr_name, device, length);
  return request;
}

int open_control(const char* path)
{
  return open(path, O_RDONLY | O_CLOEXEC);
}

int control(int fd, unsigned long request, void* argument)
{
  return ioctl(fd, request, argument);
}

int datagram_socket()
{
  return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

int link_flags_get(int fd, const char* device, short* flags)
{
  ifreq request = request_for(device);
  const int rc = ioctl(fd, SIOCGIFFLAGS, &request);
  if (rc >= 0)
    *flags = request.ifr_flags;
  return rc;
}

int link_flags_set(int fd, const char* device, short flags)
{
  ifreq request = request_for(device);
  request.ifr_flags = flags;
  return ioctl(fd, SIOCSIFFLAGS, &request);
}

int link_index(int fd, const char* device, int* index)
{
  ifreq request = request_for(device);
  const int rc = ioctl(fd, SIOCGIFINDEX, &request);
  if (rc >= 0)
    *index = request.ifr_ifindex;
  return rc;
}

int link_mtu(int fd, const char* device, int* mtu)
{
  ifreq request = request_for(device);
  const int rc = ioctl(fd, SIOCGIFMTU, &request);
  if (rc >= 0)
    *mtu = request.ifr_mtu;
  return rc;
}

int link_mac(int fd, const char* device, unsigned char mac[6])
{
  ifreq request = request_for(device);
  const int rc = ioctl(fd, SIOCGIFHWADDR, &request);
  if (rc >= 0)
    std::memcpy(mac, request.ifr_hwaddr.sa_data, 6);
  return rc;
}

int packet_socket()
{
  return socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
}

int set_nonblocking(int fd)
{
  return fcntl(fd, F_SETFL, O_NONBLOCK);
}

int bind_packet(int fd, int index)
{
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = index;
  return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

void enlarge_buffers(int fd, int bytes)
{
  // The forced form needs CAP_NET_ADMIN; the plain one is capped by the system's limit.
  if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) < 0)
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
  if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof bytes) < 0)
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
}

receive_ring* ring_open(int fd)
{
  return receive_ring::open(fd).release();
}

void ring_close(receive_ring* ring)
{
  delete ring;
}

int wait_readable(const packet_source& source, int milliseconds)
{
  if (source.ring && source.ring->ready())
    return 1;
  pollfd wait{source.fd, POLLIN, 0};
  return poll(&wait, 1, milliseconds);
}

// Records as the calls that take several messages want them.
struct message_batch {
  message_batch(const kernel_record* records, unsigned records_count) : count(std::min(records_count, kernel_batch_max))
  {
    for (unsigned i = 0; i < count; ++i) {
      parts[i] = {records[i].data, records[i].length};
      messages[i] = {};
      messages[i].msg_hdr.msg_iov = &parts[i];
      messages[i].msg_hdr.msg_iovlen = 1;
    }
  }
  unsigned count;
  iovec parts[kernel_batch_max];
  mmsghdr messages[kernel_batch_max];
};

int receive_one(int fd, kernel_record& record)
{
  const ssize_t size = recv(fd, record.data, record.length, MSG_DONTWAIT);
  if (size < 0)
    return -1;
  record.length = static_cast<uint32_t>(size);
  return 1;
}

int receive(const packet_source& source, kernel_record* records, unsigned count)
{
  if (source.ring)
    return source.ring->take(records, count);
  if (count == 1)  // the plain call is cheaper than a batch of one
    return receive_one(source.fd, records[0]);
  message_batch batch(records, count);
  const int received = recvmmsg(source.fd, batch.messages, batch.count, MSG_DONTWAIT, nullptr);
  for (int i = 0; i < received; ++i)
    records[i].length = batch.messages[i].msg_len;
  return received;
}

// Has the device that the packet socket is bound to let records of that length out. False when it does already, or
// cannot be had to.
bool mtu_raise(int fd, uint32_t length)
{
  sockaddr_ll address{};
  socklen_t size = sizeof address;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) < 0 || address.sll_family != AF_PACKET)
    return false;
  ifreq request{};
  request.ifr_ifindex = address.sll_ifindex;
  if (ioctl(fd, SIOCGIFNAME, &request) < 0 || ioctl(fd, SIOCGIFMTU, &request) < 0)
    return false;
  const int needed = static_cast<int>(length) - ETH_HLEN;  // the MTU does not count the Ethernet header
  if (request.ifr_mtu >= needed)
    return false;
  request.ifr_mtu = needed;
  return ioctl(fd, SIOCSIFMTU, &request) == 0;
}

// 0, or the error for which the record is lost.
int send_one(int fd, const kernel_record& record)
{
  if (::send(fd, record.data, record.length, 0) >= 0)
    return 0;
  if (errno != EMSGSIZE)
    return errno;
  if (!mtu_raise(fd, record.length))
    return EMSGSIZE;
  return ::send(fd, record.data, record.length, 0) >= 0 ? 0 : errno;
}

send_refusals send(int fd, const kernel_record* records, unsigned count)
{
  send_refusals refused{};
  const auto send_alone = [&](const kernel_record& record) {
    if (const int error = send_one(fd, record))
      refused = {refused.count + 1, error, record.length};
  };
  if (count == 1) {
    send_alone(records[0]);
    return refused;
  }
  message_batch batch(records, count);
  // A call stops at the first record that fails: that one gets a try of its own, and the next call goes on behind it.
  for (unsigned done = 0; done < batch.count;) {
    const int sent = sendmmsg(fd, batch.messages + done, batch.count - done, 0);
    if (sent > 0)
      done += static_cast<unsigned>(sent);
    else
      send_alone(records[done++]);
  }
  return refused;
}

int queue_read(const packet_source& source, packet_queue* queue)
{
  tpacket_stats since{};
  socklen_t size = sizeof since;
  const int rc = getsockopt(source.fd, SOL_PACKET, PACKET_STATISTICS, &since, &size);
  if (rc == 0)
    *queue = {since.tp_drops, source.ring ? source.ring->waiting() : 0};
  return rc;
}

}  // namespace

const kernel_ops kernel_linux = {
    .open_control = open_control,
    .control = control,
    .close = ::close,
    .datagram_socket = datagram_socket,
    .link_flags_get = link_flags_get,
    .link_flags_set = link_flags_set,
    .link_index = link_index,
    .link_mtu = link_mtu,
    .link_mac = link_mac,
    .packet_socket = packet_socket,
    .set_nonblocking = set_nonblocking,
    .bind_packet = bind_packet,
    .enlarge_buffers = enlarge_buffers,
    .ring_open = ring_open,
    .ring_close = ring_close,
    .wait_readable = wait_readable,
    .receive = receive,
    .send = send,
    .queue_read = queue_read,
};

const kernel_ops* kernel = &kernel_linux;
