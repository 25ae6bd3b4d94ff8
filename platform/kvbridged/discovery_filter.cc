#include "platform/kvbridged/discovery_filter.h"

namespace kvbridged {
namespace {

// Instructions in their order; a jump names the instruction that it goes to, which may not be there yet.
class assembler {
public:
  size_t here() const { return program_.size(); }
  void add(sock_filter instruction) { program_.push_back(instruction); }
  void jump(uint16_t test, uint32_t operand, size_t yes, size_t no)
  {
    const auto steps = [next = here() + 1](size_t target) { return static_cast<uint8_t>(target - next); };
    add(BPF_JUMP(static_cast<uint16_t>(BPF_JMP | BPF_K | test), operand, steps(yes), steps(no)));
  }
  std::vector<sock_filter> take() { return std::move(program_); }

private:
  std::vector<sock_filter> program_;
};

}  // namespace

std::vector<sock_filter> discovery_filter(port_frames which, uint16_t stag_ethertype)
{
  const tag_type_list types = tag_types(stag_ethertype);
  constexpr size_t fixed = 4;  // instructions in front of the comparisons with tag types
  const size_t match = tags_most * (fixed + types.size()) + fixed;
  const size_t other = match + 1;
  assembler out;
  for (size_t depth = 0; depth <= tags_most; ++depth) {
    const auto offset = static_cast<uint32_t>(ethertype_offset + tag_size * depth);
    const bool last = depth == tags_most;
    out.add(BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0));
    out.jump(BPF_JGE, offset + 2, out.here() + 1, other);
    out.add(BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offset));
    out.jump(BPF_JEQ, discovery_ethertype, match, last ? other : out.here() + 1);
    if (last)
      break;
    const size_t behind = out.here() + types.size();
    for (const uint16_t type : types)
      out.jump(BPF_JEQ, type, behind, out.here() + 1 == behind ? other : out.here() + 1);
  }
  const uint32_t all = which == port_frames::discovery ? UINT32_MAX : 0;
  out.add(BPF_STMT(BPF_RET | BPF_K, all));
  out.add(BPF_STMT(BPF_RET | BPF_K, ~all));
  return out.take();
}

}  // namespace kvbridged
