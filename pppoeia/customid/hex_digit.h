// Hexadecimal digits of either case.
#ifndef PPPOEIA_CUSTOMID_HEX_DIGIT_H
#define PPPOEIA_CUSTOMID_HEX_DIGIT_H

// 0 to 15, or -1 for a character that is no digit.
constexpr int hex_digit(char c)
{
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

#endif
