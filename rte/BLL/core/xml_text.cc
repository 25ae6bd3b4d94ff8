#include "rte/BLL/core/xml_text.h"

#include <libxml/chvalid.h>
#include <libxml/xmlstring.h>

namespace Storage {

namespace {

constexpr char replacement[] = "\xEF\xBF\xBD";

}  // namespace

bool isElementName(const std::string& name)
{
  return name.find('\0') == std::string::npos && xmlValidateNCName(toXml(name), 0) == 0;
}

std::string xmlTextOf(const std::string& text)
{
  std::string result;
  result.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    int length = static_cast<int>(std::min<size_t>(text.size() - at, 4));
    const int character = xmlGetUTF8Char(reinterpret_cast<const unsigned char*>(text.data() + at), &length);
    if (character >= 0 && xmlIsCharQ(static_cast<unsigned>(character))) {
      result.append(text, at, static_cast<size_t>(length));
      at += static_cast<size_t>(length);
    } else {
      result += replacement;
      at += character >= 0 ? static_cast<size_t>(length) : 1;
    }
  }
  return result;
}

xmlNode* firstElement(xmlNode* node, const std::string& name)
{
  for (; node; node = node->next)
    if (node->type == XML_ELEMENT_NODE && xmlStrEqual(node->name, toXml(name)))
      return node;
  return nullptr;
}

xmlNode* appendElement(xmlNode* parent, const std::string& name)
{
  return isElementName(name) ? xmlNewChild(parent, nullptr, toXml(name), nullptr) : nullptr;
}

}  // namespace Storage
