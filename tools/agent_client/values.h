// Arguments as people write and read them: words or numbers to the bytes of a request, and back.
#ifndef TOOLS_AGENT_CLIENT_VALUES_H
#define TOOLS_AGENT_CLIENT_VALUES_H

#include "pppoeia/api/arguments.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace agent_client {

using buffer = std::vector<unsigned char>;

// The number that a word or decimal or 0x text means for that argument; nothing for anything else.
std::optional<int64_t> number_parse(const api::argument& argument, std::string_view text);

// The bytes to send for an input argument, or nothing with `why` set to one line that names the
// argument, the text and what is allowed. Records are key=value lists:
// "parent=0,type=eth,kind=1,panel-kind=0,panel=A,onu=1,gem=2,pvc=3,reserved=0"; a backslash keeps a comma in a value.
std::optional<buffer> encode(const api::argument& argument, std::string_view text, std::string& why);

// A value as it stands in such a list.
std::string record_value(std::string_view value);

// Zeroed room for an output argument.
buffer output_room(const api::argument& argument);

// The text in a buffer, up to its NUL.
std::string text_of(const buffer& bytes);

// The number in a buffer: signed for i32.
int64_t number_of(const api::argument& argument, const buffer& bytes);

// The word for a number where the argument has one, else the number.
std::string number_word(const api::argument& argument, int64_t number);

}  // namespace agent_client

#endif
