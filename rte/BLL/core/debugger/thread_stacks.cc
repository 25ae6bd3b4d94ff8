#include "rte/BLL/core/debugger/thread_stacks.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <elfutils/libdwfl.h>
#include <filesystem>
#include <fstream>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <thread>

namespace {

constexpr size_t mostFrames = 64;  // a stack that was used up has a hundred thousand
constexpr size_t longestName = 300;
constexpr std::chrono::milliseconds stopsWithin(700);

struct frame_t {
  Dwarf_Addr address;
  bool interrupted;  // by a signal or by us: the address is the one of the instruction, not behind a call
};

struct walk_t {
  std::vector<frame_t> frames;
  bool cut = false;
};

int noteFrame(Dwfl_Frame* state, void* argument)
{
  walk_t& walk = *static_cast<walk_t*>(argument);
  frame_t frame{};
  if (!dwfl_frame_pc(state, &frame.address, &frame.interrupted))
    return DWARF_CB_ABORT;
  walk.cut = walk.frames.size() == mostFrames;
  if (!walk.cut)
    walk.frames.push_back(frame);
  return walk.cut ? DWARF_CB_ABORT : DWARF_CB_OK;
}

std::string taskPath(pid_t process, int32_t thread)
{
  return "/proc/" + std::to_string(process) + "/task/" + std::to_string(thread);
}

std::string demangled(const char* symbol)
{
  int status = 0;
  char* const name = abi::__cxa_demangle(symbol, nullptr, nullptr, &status);
  std::string result = status == 0 ? name : symbol;
  std::free(name);
  if (result.size() > longestName)
    result.replace(longestName, std::string::npos, "...");
  return result;
}

std::string functionAt(Dwfl_Module* module, Dwarf_Addr address)
{
  GElf_Off offset = 0;
  GElf_Sym symbol;
  const char* const name = dwfl_module_addrinfo(module, address, &offset, &symbol, nullptr, nullptr, nullptr);
  return name ? demangled(name) : "?";
}

std::string fileName(const char* path)
{
  return std::filesystem::path(path).filename().string();
}

// " at file:line"; empty where lines are not known.
std::string sourceOf(Dwfl_Module* module, Dwarf_Addr address)
{
  int line = 0;
  Dwfl_Line* const source = dwfl_module_getsrc(module, address);
  const char* const file = source ? dwfl_lineinfo(source, nullptr, &line, nullptr, nullptr, nullptr) : nullptr;
  return file ? " at " + fileName(file) + ":" + std::to_string(line) : std::string();
}

std::string libraryOf(Dwfl_Module* module)
{
  const char* const name = dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  return name ? " in " + fileName(name) : std::string();
}

// Of the frame that the signal came upon: behind the trampoline that the kernel put between, which is the first
// interrupted frame below the top of the handler.
std::vector<frame_t>::const_iterator belowSignal(const std::vector<frame_t>& frames)
{
  if (frames.empty())
    return frames.end();
  const auto trampoline =
      std::find_if(frames.begin() + 1, frames.end(), [](const frame_t& f) { return f.interrupted; });
  return trampoline == frames.end() || trampoline + 1 == frames.end() ? frames.begin() : trampoline + 1;
}

// A thread of another process, held still while its stack is read. Seizes the thread (ptrace(2)) and lets it go at the
// end. No SIGSTOP is sent: should the tracer die in between, the thread simply goes on, where a SIGSTOP on its way
// would stop the whole process. Like any stop it ends a few system calls with EINTR that the kernel does not restart
// (epoll_wait(2), see signal(7)).
class heldThread_t {
public:
  heldThread_t(pid_t thread, std::chrono::milliseconds longest);
  ~heldThread_t();
  heldThread_t(const heldThread_t&) = delete;
  heldThread_t& operator=(const heldThread_t&) = delete;

  bool isHeld() const { return state_ == state_t::held; }
  // It was asked to stop and did not in time, deep in a driver perhaps. It will stop as soon as it comes back, and
  // nobody but the end of this process can take that back.
  bool isPending() const { return state_ == state_t::pending; }

private:
  enum class state_t { notOurs, pending, held };
  state_t state_ = state_t::notOurs;
  pid_t thread_;
  int signal_ = 0;  // it was just about to get; delivered when it goes on
};

heldThread_t::heldThread_t(pid_t thread, std::chrono::milliseconds longest) : thread_(thread)
{
  if (ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0)
    return;
  state_ = state_t::pending;
  ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
  const auto deadline = std::chrono::steady_clock::now() + longest;
  for (;;) {
    int status = 0;
    const pid_t stopped = waitpid(thread, &status, __WALL | WNOHANG);
    if (stopped != 0) {
      state_ = stopped == thread && WIFSTOPPED(status) ? state_t::held : state_t::notOurs;
      const bool byRequest = (status >> 16) == PTRACE_EVENT_STOP;
      signal_ = isHeld() && !byRequest ? WSTOPSIG(status) : 0;
      return;
    }
    if (std::chrono::steady_clock::now() >= deadline)
      return;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

heldThread_t::~heldThread_t()
{
  if (isHeld())
    ptrace(PTRACE_DETACH, thread_, nullptr, static_cast<long>(signal_));
}

}  // namespace

void processStacks_t::end_t::operator()(Dwfl* dwfl) const
{
  dwfl_end(dwfl);
}

processStacks_t::processStacks_t(pid_t process, std::chrono::milliseconds linesFor)
    : process_(process), linesUntil_(std::chrono::steady_clock::now() + linesFor)
{
  static const Dwfl_Callbacks callbacks = {dwfl_linux_proc_find_elf, dwfl_standard_find_debuginfo, nullptr, nullptr};
  dwfl_.reset(dwfl_begin(&callbacks));
  constexpr bool threadsAreHeldAlready = true;
  if (dwfl_ &&
      (dwfl_linux_proc_report(dwfl_.get(), process) != 0 || dwfl_report_end(dwfl_.get(), nullptr, nullptr) != 0 ||
       dwfl_linux_proc_attach(dwfl_.get(), process, threadsAreHeldAlready) != 0))
    dwfl_.reset();
}

std::string processStacks_t::of(int32_t kernelThreadId, bool afterSignal)
{
  std::error_code error;  // a thread of some other process is none of ours, whatever we might be allowed to see
  if (!dwfl_ || !std::filesystem::exists(taskPath(process_, kernelThreadId), error))
    return {};
  walk_t walk;
  {
    const heldThread_t thread(kernelThreadId, stopsWithin);
    pending_ = pending_ || thread.isPending();
    if (!thread.isHeld())
      return {};
    dwfl_getthread_frames(dwfl_.get(), kernelThreadId, noteFrame, &walk);  // what was seen before an error is kept
  }
  std::string text;
  size_t number = 0;
  for (auto frame = afterSignal ? belowSignal(walk.frames) : walk.frames.cbegin(); frame != walk.frames.cend(); ++frame)
    text += describe(number++, frame->address, frame->interrupted);
  return walk.cut ? text + "... and so on\n" : text;
}

std::string processStacks_t::describe(size_t number, uint64_t address, bool interrupted) const
{
  char text[64];
  std::snprintf(text, sizeof text, "#%-2zu 0x%012" PRIx64 " ", number, address);
  // The address behind a call may already belong to the next line, or to the next function.
  const Dwarf_Addr inside = interrupted ? address : address - 1;
  Dwfl_Module* const module = dwfl_addrmodule(dwfl_.get(), inside);
  if (!module)
    return std::string(text) + "?\n";
  std::string place = std::chrono::steady_clock::now() < linesUntil_ ? sourceOf(module, inside) : std::string();
  if (place.empty())
    place = libraryOf(module);
  return text + functionAt(module, inside) + place + "\n";
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

std::string threadName(pid_t process, int32_t kernelThreadId)
{
  std::string name;
  std::getline(std::ifstream(taskPath(process, kernelThreadId) + "/comm"), name);
  return name;
}
