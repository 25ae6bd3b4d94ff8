#include "base/thread_annotations.h"
#include "rte/BLL/core/settings/settings_file.h"
#include "rte/BLL/core/settings/xml.h"
#include "rte/BLL/core/storage_mng.h"
#include <boost/make_shared.hpp>
#include <iostream>
#include <libxml/parser.h>
#include <memory>
#include <thread>

namespace Storage {

namespace {

boost::shared_ptr<Setting> handleOn(xmlNode* node)
{
  return node ? boost::make_shared<Setting>(node) : boost::shared_ptr<Setting>();
}

bool isNull(const xmlNode* node, const char* operation)
{
  if (!node)
    std::cout << "Setting::" << operation << "(): node = 0\n" << std::flush;
  return !node;
}

// libxml2's clean-up frees what all its users in the process share, and forgets, unfreed, what it keeps for each
// thread. So it is done only while no other store lives, and only if a single thread has used stores since the last
// one.
struct parserUse_t {
  checked_mutex lock;
  int liveStores TSA_GUARDED_BY(lock) = 0;
  std::thread::id user TSA_GUARDED_BY(lock);
  bool severalUsers TSA_GUARDED_BY(lock) = false;
};

parserUse_t& parserUse()
{
  static parserUse_t& use = *new parserUse_t;  // outlives stores that are static objects
  return use;
}

// Called by whoever goes on to use libxml2.
void noteUser(parserUse_t& use) TSA_REQUIRES(use.lock)
{
  const std::thread::id self = std::this_thread::get_id();
  use.severalUsers = use.severalUsers || (use.user != std::thread::id() && use.user != self);
  use.user = self;
}

// `others` counts the stores that still need the parser.
void cleanUpParser(parserUse_t& use, int others) TSA_REQUIRES(use.lock)
{
  noteUser(use);
  if (others > 0 || use.severalUsers)
    return;
  xmlCleanupParser();
  use.user = {};
}

void say(const std::string& line)
{
  std::cout << line << std::flush;
}

// The number of bytes written, or -1.
int writeDocument(const std::string& file, xmlDoc* document)
{
  xmlChar* bytes = nullptr;
  int size = 0;
  xmlDocDumpFormatMemoryEnc(document, &bytes, &size, "UTF-8", 1);
  const std::unique_ptr<xmlChar, xmlFreeFunc> owner(bytes, xmlFree);
  if (!bytes || size <= 0)
    return -1;
  return writeFile(file, {reinterpret_cast<const char*>(bytes), static_cast<size_t>(size)}) ? size : -1;
}

}  // namespace

std::string Setting::getValue(const std::string& name) const
{
  if (isNull(node_, "getValue"))
    return {};
  const xmlAttr* attribute = node_->properties;
  while (attribute && !xmlStrEqual(attribute->name, toXml(name)))
    attribute = attribute->next;
  if (!attribute)
    return {};
  std::string text;
  if (attributeText(*attribute, text))
    return fromXmlText(text);
  std::cout << "Setting::getValue(): value of " << name << " is too long\n" << std::flush;
  return {};
}

void Setting::setValue(const std::string& name, const std::string& value)
{
  if (isNull(node_, "setValue"))
    return;
  const std::string text = toXmlText(value);
  if (!isAttributeName(name) || !xmlNewProp(node_, toXml(name), toXml(text)))
    std::cout << "Setting::setValue(): error during adding " << name << " to the node!\n" << std::flush;
}

boost::shared_ptr<Setting> Setting::getSubSetting(const std::string& name) const
{
  if (isNull(node_, "getSubSetting"))
    return {};
  return handleOn(firstElement(node_->children, name));
}

boost::shared_ptr<Setting> Setting::getNext() const
{
  if (isNull(node_, "getNext"))
    return {};
  return handleOn(xmlNextElementSibling(node_));
}

boost::shared_ptr<Setting> Setting::addSubSetting(const std::string& name)
{
  if (isNull(node_, "addSubSetting"))
    return {};
  xmlNode* const child = appendElement(node_, name);
  if (!child)
    std::cout << "Setting::addSubSetting(): error during adding " << name << " to the node as child!\n" << std::flush;
  return handleOn(child);
}

StorageMng::StorageMng()
{
  parserUse_t& use = parserUse();
  const mutex_guard guard(use.lock);
  noteUser(use);
  LIBXML_TEST_VERSION
  ++use.liveStores;
  document_ = xmlNewDoc(toXml("1.0"));
  if (document_)
    xmlDocSetRootElement(document_, xmlNewDocNode(document_, nullptr, toXml("Configuration"), nullptr));
}

StorageMng::~StorageMng()
{
  parserUse_t& use = parserUse();
  const mutex_guard guard(use.lock);
  freeDocument();
  cleanUpParser(use, --use.liveStores);
}

bool StorageMng::load(const std::string& file)
{
  freeDocument();
  {
    parserUse_t& use = parserUse();
    const mutex_guard guard(use.lock);
    cleanUpParser(use, use.liveStores - 1);
    noteUser(use);
    xmlInitParser();
  }
  document_ = parseFile(file);
  if (!document_) {
    say("StorageMng::load(): could not parse file " + file);
    return false;
  }
  if (!xmlDocGetRootElement(document_)) {
    freeDocument();
    say("StorageMng::load(): root = 0 ");
    return false;
  }
  return true;
}

bool StorageMng::save(const std::string& file) const
{
  if (!document_) {
    say("StorageMng::save(): there are no document to save\n");
    return false;
  }
  {
    parserUse_t& use = parserUse();
    const mutex_guard guard(use.lock);
    noteUser(use);
  }
  const int size = writeDocument(file, document_);
  if (size < 0) {
    say("StorageMng::save(): error during saving the xml filen");
    return false;
  }
  say("StorageMng::save(): Success! " + std::to_string(size) + "Bytes was written.");
  return true;
}

boost::shared_ptr<Setting> StorageMng::getRoot(const std::string& name) const
{
  const xmlNode* const top = rootElement("getRoot(): there are no document loaded yet");
  xmlNode* const found = top ? firstElement(top->children, name) : nullptr;
  return found ? boost::make_shared<Setting>(found) : boost::shared_ptr<Setting>();
}

boost::shared_ptr<Setting> StorageMng::addRoot(const std::string& name)
{
  xmlNode* const top = rootElement("addRoot(): there are no document to add root");
  if (!top)
    return {};
  xmlNode* const added = appendElement(top, name);
  if (!added) {
    say("StorageMng::addRoot(): error during adding " + name + " to the document!\n");
    return {};
  }
  return boost::make_shared<Setting>(added);
}

void StorageMng::freeDocument()
{
  xmlFreeDoc(document_);
  document_ = nullptr;
}

// Null, after a line that says what is missing; `noDocument` is what the operation says without a document.
xmlNode* StorageMng::rootElement(const char* noDocument) const
{
  if (!document_) {
    say(std::string("StorageMng::") + noDocument + "\n");
    return nullptr;
  }
  xmlNode* const root = xmlDocGetRootElement(document_);
  if (!root) {
    const std::string operation = noDocument;
    say("StorageMng::" + operation.substr(0, operation.find(':')) + ": there are no root node in the document!\n");
  }
  return root;
}

}  // namespace Storage
