// Texts in fixed fields and buffers: bytes, NUL-terminated, bounded by the field.
#ifndef PPPOEIA_TEXT_H
#define PPPOEIA_TEXT_H

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// Copies at most `most` characters (by default what the field holds) and terminates. `most` must be below the size.
template <size_t Size>
void text_copy(char (&field)[Size], const char* text, size_t most = Size - 1)
{
  static_assert(Size > 1);
  const size_t length = strnlen(text, std::min(most, Size - 1));
  std::memmove(field, text, length);
  field[length] = '\0';
}

// Copies a field's whole text to a caller's buffer of at least the field's size. What an earlier, longer text left in
// the field behind the NUL stays there: the caller gets zeros.
template <size_t Size>
void text_give(char* out, const char (&field)[Size])
{
  const size_t length = strnlen(field, Size - 1);
  std::memcpy(out, field, length);
  std::memset(out + length, 0, Size - length);
}

// True when the text has more than `most` characters. Looks no further than it must.
inline bool text_longer_than(const char* text, size_t most)
{
  return strnlen(text, most + 1) > most;
}

// Builds a text in a fixed buffer, cutting what does not fit: the frame path's snprintf.
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
