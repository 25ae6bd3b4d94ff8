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
// Of a plain setting it is one call of text_set(), number_set() and their like, which are below.
//
// A step that fails with a trace of its own returns an outcome that is traced already; the others' results are traced
// here once, as "name()=result".
#ifndef PPPOEIA_OPERATIONS_OPERATION_H
#define PPPOEIA_OPERATIONS_OPERATION_H

#include "pppoeia/log.h"
#include "pppoeia/records.h"
#include "pppoeia/text.h"

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
  // Success, traced with a text.
  int done(const char* text) const { return refused(text, 0); }
  int no_entry() const { return refused("-ENOENT", -ENOENT); }
  int no_space() const { return refused("-ENOSPC", -ENOSPC); }
  int no_memory() const { return refused("-ENOMEM", -ENOMEM); }
  int invalid() const { return refused("-EINVAL", -EINVAL); }
  int no_port(uint32_t id) const
  {
    pppoeia_log(log_debug, "%s(%d)=-ENODEV", name_, static_cast<int>(id));
    return -ENODEV;
  }
  // A VLAN that has no record. The trace names a missing port 0.
  int no_vlan() const { return no_port(0); }
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
    return with_port(bridge, id, [&](pppoeia_bridge& record, pppoeia_port& port) {
      return locked(record, [&](pppoeia_bridge& owner) { return body(owner, port); });
    });
  }

  // Runs `body(bridge, port)`, which returns the result, without the lock and without a trace of that.
  template <typename Body>
  int with_port(const char* bridge, uint32_t id, Body body) const
  {
    pppoeia_bridge* record = bridge_find(bridge);
    if (!record)
      return no_entry();
    pppoeia_port* port = port_find(*record, id);
    return port ? body(*record, *port) : no_port(id);
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

// --- Operations that set or tell one field -------------------------------------------------------------------------

// A text into a field, or the refusal. Its length is tested under the lock: it comes after the look-up either way.
template <typename Record, size_t Size>
outcome text_store(const operation& self, Record& record, char (Record::*field)[Size], const char* text,
                   too_long longer)
{
  if (longer != too_long::cut && text_longer_than(text, Size - 1))
    return {longer == too_long::no_space ? self.no_space() : self.no_memory(), true};
  text_copy(record.*field, text);
  return {0};
}

template <size_t Size>
using bridge_text = char (bridge_settings::*)[Size];
template <size_t Size>
using port_text = char (port_settings::*)[Size];

template <size_t Size>
int text_set(const operation& self, const char* bridge, bridge_text<Size> field, const char* text, too_long longer)
{
  self.entry(bridge, text);
  return self.on_bridge(bridge, [&](bridge_settings& record) { return text_store(self, record, field, text, longer); });
}

template <size_t Size>
int text_get(const operation& self, const char* bridge, bridge_text<Size> field, char* text)
{
  self.entry(bridge);
  return self.on_bridge(bridge, [&](bridge_settings& record) {
    text_give(text, record.*field);
    return outcome{0};
  });
}

template <typename Number>
int number_set(const operation& self, const char* bridge, Number bridge_settings::*field, Number value)
{
  self.entry(bridge, value);
  return self.on_bridge(bridge, [&](bridge_settings& record) {
    record.*field = value;
    return outcome{0};
  });
}

template <typename Field, typename Number>
int number_get(const operation& self, const char* bridge, Field bridge_settings::*field, Number* value)
{
  self.entry(bridge);
  return self.on_bridge(bridge, [&](bridge_settings& record) {
    *value = static_cast<Number>(record.*field);
    return outcome{0};
  });
}

template <size_t Size>
int text_set(const operation& self, const char* bridge, uint32_t port, port_text<Size> field, const char* text,
             too_long longer)
{
  self.entry(bridge, port, text);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, port_settings& record) {
    return text_store(self, record, field, text, longer);
  });
}

template <size_t Size>
int text_get(const operation& self, const char* bridge, uint32_t port, port_text<Size> field, char* text)
{
  self.entry(bridge, port);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, port_settings& record) {
    text_give(text, record.*field);
    return outcome{0};
  });
}

template <typename Number>
int number_set(const operation& self, const char* bridge, uint32_t port, Number port_settings::*field, Number value,
               const char* words)
{
  self.entry(bridge, port, value);
  return self.on_port(bridge, port, [&](pppoeia_bridge& owner, port_settings& record) {
    record.*field = value;
    pppoeia_log(log_debug, "<%s> Port %d %s %d.", owner.name, static_cast<int>(port), words, static_cast<int>(value));
    return outcome{0};
  });
}

template <typename Field, typename Number>
int number_get(const operation& self, const char* bridge, uint32_t port, Field port_settings::*field, Number* value)
{
  self.entry(bridge, port);
  return self.on_port(bridge, port, [&](pppoeia_bridge&, port_settings& record) {
    *value = static_cast<Number>(record.*field);
    return outcome{0};
  });
}

#endif
