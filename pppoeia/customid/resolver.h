// The raw value of a macro, before any option: from the records, the node, the frame, or the test data.
#ifndef PPPOEIA_CUSTOMID_RESOLVER_H
#define PPPOEIA_CUSTOMID_RESOLVER_H

#include "pppoeia/customid/customid.h"
#include "pppoeia/customid/vocabulary.h"

#include <string>

// Writes the macro's value to `macroString`. False only for a macro that has no source of values at all; everything
// else that stands in the way is logged at debug level and gives an empty value. Takes no lock.
bool getMacroStringValue(const pppoeia_bridge* bridge, customIdFormat macroType, std::string& macroString,
                         unsigned intfId, idGenType useData, unsigned short vid, unsigned short cvid);

#endif
