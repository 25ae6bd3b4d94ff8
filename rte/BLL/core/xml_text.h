// What the settings store needs beside libxml2's own calls. Not installed.
#pragma once

#include <libxml/tree.h>
#include <string>

namespace Storage {

inline const xmlChar* toXml(const std::string& text)
{
  return reinterpret_cast<const xmlChar*>(text.c_str());
}

// False for names that would make the saved document unreadable.
bool isElementName(const std::string& name);

// The text with everything that an XML 1.0 document cannot hold replaced by U+FFFD; valid UTF-8.
std::string xmlTextOf(const std::string& text);

// The first element named `name` from `node` on through its following siblings; null if there is none.
xmlNode* firstElement(xmlNode* node, const std::string& name);

// Appends a child element; null for a name that XML does not allow, or for want of memory.
xmlNode* appendElement(xmlNode* parent, const std::string& name);

}  // namespace Storage
