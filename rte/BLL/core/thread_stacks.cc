#include "rte/BLL/core/thread_stacks.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <elfutils/libdwfl.h>
#include <filesystem>
#include <memory>

namespace {

constexpr size_t mostFrames = 64;  // a stack that was used up has a hundred thousand

struct frame_t {
  Dwarf_Addr address;
  bool interrupted;  // by a signal: the address is the one of the instruction, not behind a call
};

struct walk_t {
  std::vector<frame_t> frames;
};

int noteFrame(Dwfl_Frame* state, void* argument)
{
  auto& frames = static_cast<walk_t*>(argument)->frames;
  frame_t frame{};
  if (!dwfl_frame_pc(state, &frame.address, &frame.interrupted))
    return DWARF_CB_ABORT;
  frames.push_back(frame);
  return frames.size() < mostFrames ? DWARF_CB_OK : DWARF_CB_ABORT;
}

struct dwflEnd_t {
  void operator()(Dwfl* dwfl) const { dwfl_end(dwfl); }
};
using dwfl_ptr = std::unique_ptr<Dwfl, dwflEnd_t>;

dwfl_ptr attach(pid_t process)
{
  static const Dwfl_Callbacks callbacks = {dwfl_linux_proc_find_elf, dwfl_standard_find_debuginfo, nullptr, nullptr};
  dwfl_ptr dwfl(dwfl_begin(&callbacks));
  if (!dwfl || dwfl_linux_proc_report(dwfl.get(), process) != 0 || dwfl_report_end(dwfl.get(), nullptr, nullptr) != 0 ||
      dwfl_linux_proc_attach(dwfl.get(), process, false) != 0)
    return {};
  return dwfl;
}

std::string demangled(const char* symbol)
{
  int status = 0;
  char* const name = abi::__cxa_demangle(symbol, nullptr, nullptr, &status);
  std::string result = status == 0 ? name : symbol;
  std::free(name);
  return result;
}

std::string functionAt(Dwfl_Module* module, Dwarf_Addr address)
{
  GElf_Off offset = 0;
  GElf_Sym symbol;
  const char* const name = dwfl_module_addrinfo(module, address, &offset, &symbol, nullptr, nullptr, nullptr);
  return name ? demangled(name) : "?";
}

// " at file:line", or " in <library>" where lines are not known.
std::string placeOf(Dwfl_Module* module, Dwarf_Addr address)
{
  int line = 0;
  Dwfl_Line* const source = dwfl_module_getsrc(module, address);
  const char* const file = source ? dwfl_lineinfo(source, nullptr, &line, nullptr, nullptr, nullptr) : nullptr;
  if (file)
    return " at " + std::filesystem::path(file).filename().string() + ":" + std::to_string(line);
  const char* const name = dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  return name ? " in " + std::filesystem::path(name).filename().string() : std::string();
}

std::string describe(Dwfl* dwfl, size_t number, const frame_t& frame)
{
  char text[64];
  std::snprintf(text, sizeof text, "#%-2zu 0x%012" PRIx64 " ", number, static_cast<uint64_t>(frame.address));
  // The address behind a call may already belong to the next line, or to the next function.
  const Dwarf_Addr address = frame.interrupted ? frame.address : frame.address - 1;
  Dwfl_Module* const module = dwfl_addrmodule(dwfl, address);
  if (!module)
    return std::string(text) + "?\n";
  return text + functionAt(module, address) + placeOf(module, address) + "\n";
}

}  // namespace

std::string stackOf(pid_t process, int32_t kernelThreadId, bool afterSignal)
{
  const dwfl_ptr dwfl = attach(process);
  walk_t walk;
  if (!dwfl)
    return {};
  dwfl_getthread_frames(dwfl.get(), kernelThreadId, noteFrame, &walk);  // what was seen before an error is worth having
  auto first = walk.frames.begin();
  if (afterSignal && !walk.frames.empty())
    if (const auto hit = std::find_if(first + 1, walk.frames.end(), [](const frame_t& f) { return f.interrupted; });
        hit != walk.frames.end())
      first = hit + 1;  // behind the trampoline that the kernel put between
  std::string text;
  size_t number = 0;
  for (; first != walk.frames.end(); ++first)
    text += describe(dwfl.get(), number++, *first);
  return text;
}

std::vector<int32_t> threadsOf(pid_t process)
{
  std::vector<int32_t> threads;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", error))
    threads.push_back(std::atoi(entry.path().filename().c_str()));
  std::ranges::sort(threads);
  return threads;
}
