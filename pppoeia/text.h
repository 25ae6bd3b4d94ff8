// Texts in fixed fields of records: bytes, NUL-terminated, bounded by the field.
#ifndef PPPOEIA_TEXT_H
#define PPPOEIA_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstring>

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

#endif
