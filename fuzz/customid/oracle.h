// The macro language a second time, written from its rules in one straight piece and without regard to speed, so that
// random formats can be held against it.
#ifndef FUZZ_CUSTOMID_ORACLE_H
#define FUZZ_CUSTOMID_ORACLE_H

#include <map>
#include <string>
#include <vector>

struct oracle_value {
  std::string text;
  std::string log;  // what the resolver logs; empty for nothing
  bool known = true;
};

struct oracle_identifier {
  std::string text;
  std::vector<unsigned char> bin;
  std::vector<std::string> log;
  std::string trace;  // of standard output, without the numbers of source lines
  std::string end;    // where and why no further macro is read

  bool operator==(const oracle_identifier&) const = default;
};

// Expands `format` with the values given by macro name, for that bridge. `asked_for` is what the resolver's trace says
// of the line; without it the values come from elsewhere, which traces nothing.
oracle_identifier oracle_generate(const std::string& format, const std::map<std::string, oracle_value>& values,
                                  const std::string& bridge = "br0", const std::string& asked_for = "");

#endif
