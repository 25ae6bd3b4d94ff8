#include "tools/report_terminal/report_terminal.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>

report_terminal::report_terminal()
{
  std::error_code none;
  for (const std::filesystem::path& folder :
       {std::filesystem::path("/dev/shm"), std::filesystem::temp_directory_path(none)}) {
    path_ = folder / "report.XXXXXX";
    fd_ = mkostemp(path_.data(), O_CLOEXEC);
    if (fd_ >= 0)
      return;
  }
  throw std::system_error(errno, std::generic_category(), "no room for a report");
}

report_terminal::~report_terminal()
{
  close(fd_);
  unlink(path_.c_str());
}

std::string report_terminal::take() const
{
  std::string text;
  char block[16384];
  for (ssize_t count; (count = pread(fd_, block, sizeof block, static_cast<off_t>(text.size()))) > 0;)
    text.append(block, static_cast<size_t>(count));
  return text;
}
