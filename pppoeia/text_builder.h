// Builds a text in a fixed buffer, cutting what does not fit: the frame path's snprintf.
#ifndef PPPOEIA_TEXT_BUILDER_H
#define PPPOEIA_TEXT_BUILDER_H

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

template <size_t Most>
class text_builder {
public:
  text_builder& operator<<(std::string_view text)
  {
    const size_t length = std::min(text.size(), Most - used_);
    std::memcpy(text_ + used_, text.data(), length);
    used_ += length;
    return *this;
  }
  text_builder& operator<<(char c) { return *this << std::string_view(&c, 1); }
  text_builder& operator<<(int32_t number)
  {
    char digits[12];
    const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    return *this << std::string_view(digits, static_cast<size_t>(end - digits));
  }

  // Copies at most `most` characters to `out` and terminates them.
  void give(char* out, size_t most) const
  {
    const size_t length = std::min(used_, most);
    std::memcpy(out, text_, length);
    out[length] = '\0';
  }

private:
  char text_[Most];
  size_t used_ = 0;
};

#endif
