// Files of tests: a folder of their own, a file's whole text, how much a folder holds.
#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// Made under /tmp, where all can enter it; goes with all that is in it.
class own_folder {
public:
  own_folder() : path(mkdtemp(std::string("/tmp/pppoeia-test.XXXXXX").data()))
  {
    std::filesystem::permissions(path, std::filesystem::perms{0755});
  }
  ~own_folder()
  {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  own_folder(const own_folder&) = delete;
  own_folder& operator=(const own_folder&) = delete;

  const std::string path;
};

inline std::string file_text(const std::string& path)
{
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Of "/proc/self/fd", one is the look itself.
inline std::ptrdiff_t entries(const std::string& folder)
{
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

#endif
