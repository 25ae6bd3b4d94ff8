// Cases of the macro language as people write them: in formats.cases and in the "formats" blocks of docs/formats.md.
//
//   @ port 7 vlan 100 cvid 5        for the lines that follow; what is not named keeps its value. Also: "data test"
//   FORMAT => TEXT                  a text identifier
//   FORMAT => TEXT => 0a 0b 64      a byte identifier
//   ! message                       a log line of the case above; with any other lines, or in another order, it fails
//   # remark
//
// A FORMAT or TEXT in double quotes keeps its blanks; \xNN in quotes is a byte.
#ifndef TESTS_CUSTOMID_CASE_FILE_H
#define TESTS_CUSTOMID_CASE_FILE_H

#include "pppoeia/identifiers/macro_values.h"

#include <string>
#include <vector>

struct format_case {
  size_t line = 0;
  unsigned port = 7;
  unsigned vlan = 100;
  unsigned cvid = 4095;
  idGenType data = idGenLive;
  std::string format;
  std::string text;
  std::string bytes;  // "0a 0b 64"; empty for a text identifier
  std::vector<std::string> log;
};

// The cases of a text whose first line has that number. A line that is none of the above throws std::runtime_error.
std::vector<format_case> cases_read(const std::string& text, size_t first_line = 1);

// Those of all "formats" blocks of a Markdown text.
std::vector<format_case> cases_read_markdown(const std::string& text);

#endif
