// Replays files and folders of files through a fuzz target, so that the corpora are run as common tests by any
// compiler. Usage: TARGET PATH...; exit status 1 when there was nothing to replay.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void replay(const std::filesystem::path& file)
{
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv)
{
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    if (std::filesystem::is_regular_file(argv[i])) {
      replay(argv[i]);
      ++count;
    } else if (std::filesystem::is_directory(argv[i])) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
        if (!entry.is_regular_file())
          continue;
        replay(entry.path());
        ++count;
      }
    }
  }
  std::printf("%zu inputs replayed\n", count);
  return count == 0 ? 1 : 0;
}
