// The files of the settings store: what they may be, how long they may get, and how one replaces another.
#ifndef RTE_BLL_CORE_SETTINGS_SETTINGS_FILE_H
#define RTE_BLL_CORE_SETTINGS_SETTINGS_FILE_H

#include "base/descriptor.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace Storage {

// A settings file being read: nothing but a regular file, and no more than `max` bytes of it.
class inputFile_t {
public:
  static constexpr size_t max = size_t{32} << 20;

  // Does not wait, whatever stands at that path.
  explicit inputFile_t(const std::string& path);

  // False when the file could not be opened or read, or is too long.
  bool good() const { return good_; }
  // Up to `size` bytes: how many, 0 at the end, -1 when no longer good.
  int read(char* buffer, int size);

private:
  descriptor fd_;
  size_t left_ = max;
  bool good_;
};

// Puts `content` into the file. A regular file is replaced at one stroke, keeping its mode and the links that lead to
// it: a full disk or a loss of power leaves the old content or the new. Any other file, and one in a folder that takes
// no new files, is written in place. False when that failed, with errno.
bool writeFile(const std::string& path, std::string_view content);

}  // namespace Storage

#endif
