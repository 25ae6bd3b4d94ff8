// A settings file is read with what libxml2 does by default: nothing that a document names is fetched, and general
// entities stay references. What the parser does not bound by itself is bounded here, because a file of a few megabytes
// could keep it busy for hours or fill the memory:
//
//   - the file's length, and what kind of file it is (settings_file.h);
//   - attributes and namespaces of an element, which the parser compares each with each;
//   - namespace names that come from the document type's defaults, which are copied into each element.
//
// libxml2 itself refuses elements nested deeper than 256, texts of ten million bytes, and entities that grow out of
// proportion while they are parsed.
#include "rte/BLL/core/settings/xml.h"

#include "rte/BLL/core/settings/settings_file.h"
#include <iostream>
#include <libxml/SAX2.h>
#include <libxml/chvalid.h>
#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/xmlstring.h>
#include <memory>

namespace Storage {

namespace {

constexpr int attributesMax = 1400;  // of one element; checked between two reads, so roughly
constexpr int namespacesMax = 256;   // declared around one element
constexpr int messagesMax = 10;

using parser_t = std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)>;

// What the parser's callbacks share: they reach it through the parser's private pointer.
struct reading_t {
  const std::string& name;
  inputFile_t file;
  xmlParserCtxt* parser;
  size_t namespaceBytesLeft = inputFile_t::max;
  int messages = 0;
  bool refused = false;
};

reading_t& readingOf(void* parser)
{
  return *static_cast<reading_t*>(static_cast<xmlParserCtxt*>(parser)->_private);
}

// The parser takes five places of its array for each attribute, and two for each namespace in force.
bool isOvercrowded(const xmlParserCtxt& parser)
{
  return parser.maxatts > 5 * 2 * attributesMax || parser.nsNr > 2 * namespacesMax;
}

void refuse(reading_t& reading, const char* reason)
{
  reading.refused = true;
  std::cerr << reading.name << ": " << reason << std::endl;
}

int read(void* context, char* buffer, int size)
{
  reading_t& reading = *static_cast<reading_t*>(context);
  if (!reading.refused && isOvercrowded(*reading.parser))
    refuse(reading, "too many attributes or namespaces in an element");
  return reading.refused ? -1 : reading.file.read(buffer, size);
}

void startElement(void* parser, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri, int namespaceCount,
                  const xmlChar** namespaces, int attributeCount, int defaultedCount, const xmlChar** attributes)
{
  reading_t& reading = readingOf(parser);
  for (int i = 0; i < namespaceCount; ++i) {
    const xmlChar* const declared = namespaces[2 * i + 1];
    const auto length = static_cast<size_t>(xmlStrlen(declared));
    // libxml2 takes any text for a namespace, but would write this one as it is.
    const bool unwritable = xmlStrchr(declared, '<') != nullptr;
    if (unwritable || length > reading.namespaceBytesLeft) {
      refuse(reading, unwritable ? "a namespace that is no URI" : "too many namespaces by default");
      // An entity's text has a parser of its own, within the document's.
      xmlStopParser(static_cast<xmlParserCtxt*>(parser));
      return xmlStopParser(reading.parser);
    }
    reading.namespaceBytesLeft -= length;
  }
  xmlSAX2StartElementNs(parser, name, prefix, uri, namespaceCount, namespaces, attributeCount, defaultedCount,
                        attributes);
}

void report(void* parser, xmlError* error)
{
  reading_t& reading = readingOf(parser);
  if (!reading.refused && reading.messages++ < messagesMax)
    std::cerr << reading.name << ":" << error->line << ": " << (error->message ? error->message : "error\n");
}

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

xmlDoc* parseFile(const std::string& file)
{
  const parser_t parser(xmlNewParserCtxt(), &xmlFreeParserCtxt);
  if (!parser)
    return nullptr;
  reading_t reading{file, inputFile_t(file), parser.get()};
  if (!reading.file.good()) {
    refuse(reading, "not a readable file of at most 32 MiB");
    return nullptr;
  }
  parser->_private = &reading;
  parser->sax->startElementNs = startElement;
  parser->sax->serror = report;
  xmlDoc* const document = xmlCtxtReadIO(parser.get(), read, nullptr, &reading, file.c_str(), nullptr, XML_PARSE_NONET);
  // An error while reading looks like the end of the file, and there the document may be complete.
  if (reading.file.good() && !reading.refused)
    return document;
  xmlFreeDoc(document);
  return nullptr;
}

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
