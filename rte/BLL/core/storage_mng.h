// A settings document in memory: made afresh or loaded from an XML file, changed through Storage::Setting, saved.
//
// The elements directly under the document's root element are called roots here; a fresh document's root element is
// "Configuration". One thread at a time uses a store and its settings; stores of different threads do not meet. Nothing
// throws but for want of memory: every failure prints one line on standard output and answers empty or false.
#ifndef RTE_BLL_CORE_STORAGE_MNG_H
#define RTE_BLL_CORE_STORAGE_MNG_H

#include "rte/BLL/core/setting.h"
#include <boost/shared_ptr.hpp>
#include <string>

struct _xmlDoc;   // NOLINT(bugprone-reserved-identifier): the name is libxml2's
struct _xmlNode;  // NOLINT(bugprone-reserved-identifier): the same

namespace Storage {

class StorageMng {
public:
  StorageMng();
  ~StorageMng();
  StorageMng(const StorageMng&) = delete;
  StorageMng& operator=(const StorageMng&) = delete;

  // Replaces the document by the file's, which is a regular file of at most 32 MiB. What external entities and document
  // types name is never fetched, and a file is refused whose entities grow out of proportion, or with more than some
  // 1400 attributes in an element or 256 namespaces around one. After a failure the store has no document, and the
  // reasons are on the standard error stream. All handles on the document before end here.
  bool load(const std::string& file);
  // Writes the document, indented, as UTF-8. A regular file keeps its mode and is replaced only when the new one is on
  // the disk, so that it is never seen half-written.
  bool save(const std::string& file) const;
  // The first root of that name, or an empty pointer.
  boost::shared_ptr<Setting> getRoot(const std::string& name) const;
  // Appends a root; an empty pointer for a name that XML does not allow or one with a colon.
  boost::shared_ptr<Setting> addRoot(const std::string& name);

private:
  void freeDocument();
  _xmlNode* rootElement(const char* noDocument) const;

  _xmlDoc* document_;
};

}  // namespace Storage

#endif
