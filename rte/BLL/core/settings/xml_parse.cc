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
#include "rte/BLL/core/settings/xml_parse.h"

#include "rte/BLL/core/settings/settings_file.h"
#include <iostream>
#include <libxml/SAX2.h>
#include <libxml/parser.h>
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

}  // namespace Storage
