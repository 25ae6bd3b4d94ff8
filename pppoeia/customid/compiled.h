// Formats taken apart beforehand. What the parser makes of a format depends on its text alone, so its findings are
// kept and found again by the text: nothing has to be told when a format changes.
#ifndef PPPOEIA_CUSTOMID_COMPILED_H
#define PPPOEIA_CUSTOMID_COMPILED_H

#include "pppoeia/customid/vocabulary.h"

#include <string>
#include <vector>

// A macro as the parser leaves it. Delimiter and number live on from macro to macro: they may be an earlier one's.
struct parsed_macro {
  unsigned long begin = 0;  // place of its "$" in the format
  customIdFormat type{};
  char flags = 0;
  std::string delimiter;
  unsigned num_chars = 0;
  std::string user;  // HEX only
  std::string text;  // as written, "$" to the end of the name
};

// The parser's walk over one format, logged and traced by the parser as it goes. `format` must outlive it.
class format_parse {
public:
  explicit format_parse(const std::string& format) : format_(format) {}

  // The next macro, valid until the next call; null behind the last one that could be read.
  const parsed_macro* next();

private:
  const std::string& format_;
  unsigned long at_ = 0;
  parsed_macro macro_;
};

// A format's macros from the calling thread's store, parsed when the text is not there. Good until the thread's next
// call. Parsing may log and trace here or not at all: for use while nobody listens.
const std::vector<parsed_macro>& format_compiled(const std::string& format);

#endif
