#include "rte/BLL/core/storage_mng.h"

#include "rte/BLL/core/xml_text.h"
#include <boost/make_shared.hpp>
#include <cstdio>
#include <iostream>
#include <libxml/parser.h>
#include <mutex>
#include <sys/stat.h>

namespace Storage {

namespace {

// The parser's clean-up frees what all users of libxml2 in the process share, so it must not run while another store
// parses or saves: all of that happens under this lock, and the clean-up only when no other store is left.
std::mutex& parserLock()
{
  static std::mutex& lock = *new std::mutex;
  return lock;
}
int liveStores = 0;  // under parserLock()

void say(const std::string& line)
{
  std::cout << line << std::flush;
}

// libxml2 takes "-" for standard input and output.
std::string asPath(const std::string& file)
{
  return file == "-" ? "./-" : file;
}

bool isSpecial(const std::string& file)
{
  struct stat status = {};
  return stat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

// The number of bytes written, or -1. A regular file is never seen half-written, nor lost when the disk is full.
int writeDocument(const std::string& file, xmlDoc* document)
{
  if (isSpecial(file))
    return xmlSaveFormatFileEnc(file.c_str(), document, "UTF-8", 1);
  const std::string fresh = file + ".new";
  const int size = xmlSaveFormatFileEnc(fresh.c_str(), document, "UTF-8", 1);
  if (size >= 0 && std::rename(fresh.c_str(), file.c_str()) == 0)
    return size;
  std::remove(fresh.c_str());
  return -1;
}

}  // namespace

StorageMng::StorageMng()
{
  const std::lock_guard guard(parserLock());
  LIBXML_TEST_VERSION
  ++liveStores;
  document_ = xmlNewDoc(toXml("1.0"));
  if (document_)
    xmlDocSetRootElement(document_, xmlNewDocNode(document_, nullptr, toXml("Configuration"), nullptr));
}

StorageMng::~StorageMng()
{
  const std::lock_guard guard(parserLock());
  freeDocument();
  if (--liveStores == 0)
    xmlCleanupParser();
}

bool StorageMng::load(const std::string& file)
{
  const std::lock_guard guard(parserLock());
  freeDocument();
  if (liveStores == 1)
    xmlCleanupParser();
  document_ = xmlReadFile(asPath(file).c_str(), nullptr, XML_PARSE_NONET);
  if (!document_) {
    say("StorageMng::load(): could not parse file " + file);
    return false;
  }
  if (!xmlDocGetRootElement(document_)) {
    say("StorageMng::load(): root = 0 ");
    return false;
  }
  return true;
}

bool StorageMng::save(const std::string& file) const
{
  const std::lock_guard guard(parserLock());
  if (!document_) {
    say("StorageMng::save(): there are no document to save\n");
    return false;
  }
  const int size = writeDocument(asPath(file), document_);
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
