// What the settings store needs beside libxml2's own calls.
//
// Values are any bytes, but an XML document holds only well-formed UTF-8 without most control characters, not even as
// character references. Each byte that does not fit stands in the document as one private character, U+EF00 plus the
// byte; so do the bytes of a real character of that range, so that every value comes back as it was set. A document
// from elsewhere reads the same unless it uses these 157 private characters.
#ifndef RTE_BLL_CORE_SETTINGS_XML_H
#define RTE_BLL_CORE_SETTINGS_XML_H

#include <libxml/tree.h>
#include <string>
#include <string_view>

namespace Storage {

// Reads a settings file. The document is the caller's to free; null if there is no such file or it is unfit to be one.
// Then the reasons, ten at most, are on the standard error stream with their line numbers. Any thread; the process's
// use of libxml2 has begun.
xmlDoc* parseFile(const std::string& file);

inline const xmlChar* toXml(const std::string& text)
{
  return reinterpret_cast<const xmlChar*>(text.c_str());
}

// False for what would make the saved document unreadable or would not be found in it again: no XML name, a prefixed
// name, and for attributes "xmlns".
bool isElementName(const std::string& name);
bool isAttributeName(const std::string& name);

// The value as the document holds it, and back.
std::string toXmlText(std::string_view value);
std::string fromXmlText(std::string_view text);

// The attribute's text, with the entities in it. False if that is longer than ten million bytes, which is as long as
// the parser lets any text be, or entities are nested deeper than the parser does.
bool attributeText(const xmlAttr& attribute, std::string& text);

// The first element named `name` from `node` on through its following siblings; null if there is none.
xmlNode* firstElement(xmlNode* node, const std::string& name);

// Appends a child element; null for a name that XML does not allow, or for want of memory.
xmlNode* appendElement(xmlNode* parent, const std::string& name);

}  // namespace Storage

#endif
