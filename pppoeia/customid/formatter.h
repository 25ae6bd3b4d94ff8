// Turns a macro's raw value into the text that stands in the identifier, as its options say.
#ifndef PPPOEIA_CUSTOMID_FORMATTER_H
#define PPPOEIA_CUSTOMID_FORMATTER_H

#include "pppoeia/customid/vocabulary.h"

#include <string>
#include <vector>

// Formats `str`, whose shape is that of the macro's row, into `processedStr`. False when the macro does not take its
// options, or the value cannot be read; `processedStr` is of no use then. Reasons are logged at debug level.
bool processMacroString(const std::string& str, customIdFormat macroType, char flags, const std::string& delimiter,
                        unsigned numChars, std::string& processedStr);

// Splits an IPv6 address text (RFC 4291 2.2, forms 1 and 2) into groups of four digits, "::" filled up. 0; 1 when
// the text is malformed. A text that gives another number of groups than eight is no error here.
int ipv6AddrStrToVector(const std::string& ipv6, std::vector<std::string>& parts);

#endif
