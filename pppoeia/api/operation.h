// What all operations on records share: the traces of entry and result, the look-ups with their refusals, the lock.
//
//   int pppoeia_bridge_chassis_id_set(const char* bridge, uint32_t chassis_id)
//   {
//     const operation self{__func__};
//     self.entry(bridge, chassis_id);
//     return self.on_bridge(bridge, [&](pppoeia_bridge& record) {
//       record.chassis_id = chassis_id;
//       return outcome{0};
//     });
//   }
//
// A step that fails with a trace of its own returns an outcome that is traced already; the others' results are traced
// here once, as "name()=result".
#ifndef PPPOEIA_API_OPERATION_H
#define PPPOEIA_API_OPERATION_H

#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <cerrno>
#include <cstdint>

struct outcome {
  int rc;
  bool traced = false;
};

class operation {
public:
  explicit operation(const char* name) : name_(name) {}

  const char* name() const { return name_; }

  void entry(const char* bridge) const { pppoeia_log(log_debug, "%s(%s)", name_, bridge); }
  template <typename A>
  void entry(const char* bridge, A a) const
  {
    pppoeia_log(log_debug, "%s(%s, %d)", name_, bridge, number(a));
  }
  template <typename A, typename B>
  void entry(const char* bridge, A a, B b) const
  {
    pppoeia_log(log_debug, "%s(%s, %d, %d)", name_, bridge, number(a), number(b));
  }
  template <typename A, typename B, typename C>
  void entry(const char* bridge, A a, B b, C c) const
  {
    pppoeia_log(log_debug, "%s(%s, %d, %d, %d)", name_, bridge, number(a), number(b), number(c));
  }
  void entry(const char* bridge, const char* text) const { pppoeia_log(log_debug, "%s(%s, %s)", name_, bridge, text); }
  template <typename A>
  void entry(const char* bridge, A a, const char* text) const
  {
    pppoeia_log(log_debug, "%s(%s, %d, %s)", name_, bridge, number(a), text);
  }
  template <typename A, typename B>
  void entry(const char* bridge, A a, B b, const char* text) const
  {
    pppoeia_log(log_debug, "%s(%s, %d, %d, %s)", name_, bridge, number(a), number(b), text);
  }
  void entry_port_query(const char* bridge, uint32_t port) const
  {
    pppoeia_log(log_debug, "%s(%s) port=%u", name_, bridge, port);
  }

  // Each traces and returns its code.
  int result(int rc) const
  {
    pppoeia_log(log_debug, "%s()=%d", name_, rc);
    return rc;
  }
  int no_entry() const { return refused("-ENOENT", -ENOENT); }
  int no_space() const { return refused("-ENOSPC", -ENOSPC); }
  int no_memory() const { return refused("-ENOMEM", -ENOMEM); }
  int invalid() const { return refused("-EINVAL", -EINVAL); }
  int no_port(uint32_t id) const
  {
    pppoeia_log(log_debug, "%s(%d)=-ENODEV", name_, static_cast<int>(id));
    return -ENODEV;
  }
  int refused(const char* word, int rc) const
  {
    pppoeia_log(log_debug, "%s()=%s", name_, word);
    return rc;
  }

  // Runs `body(bridge)`, which returns an outcome, under the bridge's lock.
  template <typename Body>
  int on_bridge(const char* bridge, Body body) const
  {
    pppoeia_bridge* record = bridge_find(bridge);
    return record ? locked(*record, body) : no_entry();
  }

  // Runs `body(bridge, port)`, which returns an outcome, under the bridge's lock.
  template <typename Body>
  int on_port(const char* bridge, uint32_t id, Body body) const
  {
    pppoeia_bridge* record = bridge_find(bridge);
    if (!record)
      return no_entry();
    pppoeia_port* port = port_find(*record, id);
    if (!port)
      return no_port(id);
    return locked(*record, [&](pppoeia_bridge& owner) { return body(owner, *port); });
  }

private:
  template <typename N>
  static int number(N value)
  {
    return static_cast<int>(value);
  }

  template <typename Body>
  int locked(pppoeia_bridge& record, Body body) const
  {
    outcome done;
    {
      const bridge_lock lock(record);
      done = body(record);
    }
    return done.traced ? done.rc : result(done.rc);
  }

  const char* name_;
};

#endif
