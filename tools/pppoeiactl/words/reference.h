// Reference texts made from the API table.
#ifndef TOOLS_PPPOEIACTL_WORDS_REFERENCE_H
#define TOOLS_PPPOEIACTL_WORDS_REFERENCE_H

#include <string>

// The operations as a Markdown table, for docs/ippc.md.
std::string operations_table();

// The manual page pppoeiactl(8), in man macros.
std::string manual_page();

#endif
