#include "rte/BLL/core/settings/xml_text.h"

#include <libxml/chvalid.h>
#include <libxml/entities.h>
#include <libxml/xmlstring.h>

namespace Storage {

namespace {

constexpr unsigned privateBase = 0xEF00;
constexpr size_t attributeTextMax = 10'000'000;
constexpr int entityDepthMax = 40;

struct character_t {
  unsigned code;  // 0 where the bytes are not a character that XML may hold
  size_t length;  // in bytes, at least 1
};

// The character in front of `text`, which is not empty. Strict where libxml2's own decoder is not: it takes a stray
// continuation byte for a beginning.
character_t firstCharacter(std::string_view text)
{
  constexpr unsigned least[] = {0, 0, 0x80, 0x800, 0x10000};  // a character has one encoding, the shortest
  const unsigned first = static_cast<unsigned char>(text[0]);
  const size_t length = first < 0x80 ? 1 : first >> 5 == 6 ? 2 : first >> 4 == 14 ? 3 : first >> 3 == 30 ? 4 : 0;
  if (length == 0 || length > text.size())
    return {0, 1};
  unsigned code = length == 1 ? first : first & (0x7FU >> length);
  for (const char c : text.substr(1, length - 1)) {
    const unsigned next = static_cast<unsigned char>(c);
    if (next >> 6 != 2)
      return {0, 1};
    code = code << 6 | (next & 0x3F);
  }
  return code < least[length] || !xmlIsCharQ(code) ? character_t{0, 1} : character_t{code, length};
}

// Whether the character stands for a byte: one that can be missing in XML.
bool isPrivate(unsigned code)
{
  const unsigned byte = code - privateBase;
  return byte <= 0xFF && (byte >= 0x80 || !xmlIsCharQ(byte));
}

void appendPrivate(std::string& text, std::string_view bytes)
{
  for (const char c : bytes) {
    const unsigned code = privateBase + static_cast<unsigned char>(c);
    text += static_cast<char>(0xE0 | code >> 12);
    text += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    text += static_cast<char>(0x80 | (code & 0x3F));
  }
}

// Visits are counted as well as bytes: entities of nothing but entities can be walked for ever without a byte coming.
bool appendText(const xmlNode* node, std::string& text, size_t& left, int depth)
{
  for (; node; node = node->next) {
    const xmlNode* children = nullptr;
    const xmlChar* content = nullptr;
    if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
      content = node->content;
    } else if (node->type == XML_ENTITY_REF_NODE) {
      const xmlEntity* const entity = xmlGetDocEntity(node->doc, node->name);
      if (entity && entity->etype == XML_INTERNAL_PREDEFINED_ENTITY)
        content = entity->content;
      else if (entity)
        children = entity->children;
    }
    const auto length = static_cast<size_t>(xmlStrlen(content));
    if (length >= left || depth == 0)
      return false;
    left -= length + 1;
    text.append(reinterpret_cast<const char*>(content ? content : toXml("")), length);
    if (children && !appendText(children, text, left, depth - 1))
      return false;
  }
  return true;
}

}  // namespace

bool isElementName(const std::string& name)
{
  return name.find('\0') == std::string::npos && xmlValidateNCName(toXml(name), 0) == 0;
}

bool isAttributeName(const std::string& name)
{
  return isElementName(name) && name != "xmlns";
}

std::string toXmlText(std::string_view value)
{
  std::string text;
  text.reserve(value.size());
  while (!value.empty()) {
    const auto [code, length] = firstCharacter(value);
    const std::string_view bytes = value.substr(0, length);
    if (code == 0 || isPrivate(code))
      appendPrivate(text, bytes);
    else
      text += bytes;
    value.remove_prefix(length);
  }
  return text;
}

std::string fromXmlText(std::string_view text)
{
  std::string value;
  value.reserve(text.size());
  while (!text.empty()) {
    const auto [code, length] = firstCharacter(text);
    if (isPrivate(code))
      value += static_cast<char>(code - privateBase);
    else
      value += text.substr(0, length);
    text.remove_prefix(length);
  }
  return value;
}

bool attributeText(const xmlAttr& attribute, std::string& text)
{
  size_t left = attributeTextMax;
  return appendText(attribute.children, text, left, entityDepthMax);
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
