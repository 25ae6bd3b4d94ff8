// One element of a settings document: attributes are its values, child elements its sub-settings.
//
//   for (auto port = ports->getSubSetting("Port"); port; port = port->getNext())
//     configure(port->getValue("Id"), port->getValue("Speed"));
//
// Nothing here throws but for want of memory: every misuse prints one line on standard output and answers empty. A
// handle does not own its element; it is good as long as its store lives and loads nothing else. One thread at a time.
#ifndef RTE_BLL_CORE_SETTING_H
#define RTE_BLL_CORE_SETTING_H

#include <boost/shared_ptr.hpp>
#include <string>

struct _xmlNode;  // NOLINT(bugprone-reserved-identifier): the name is libxml2's

namespace Storage {

class Setting {
public:
  // A handle on an element of a libxml2 document; null makes one that answers empty to everything.
  explicit Setting(_xmlNode* node) : node_(node) {}

  // The attribute's text, the first one of that name; empty if there is none, and after a line on standard output if
  // its entities make it longer than ten million bytes.
  std::string getValue(const std::string& name) const;
  // Adds an attribute. One of the same name stays in front of it: setting twice leaves two, getValue() answers the
  // first, and the saved file cannot be loaded. Any bytes are a value and are read back as they were; text is UTF-8.
  // Adds nothing for a name that XML does not allow, one with a colon, or "xmlns".
  void setValue(const std::string& name, const std::string& value);
  // The first child element of that name; an empty pointer if there is none.
  boost::shared_ptr<Setting> getSubSetting(const std::string& name) const;
  // The next sibling element, whatever its name; an empty pointer behind the last one.
  boost::shared_ptr<Setting> getNext() const;
  // Appends a child element. An empty pointer for a name that XML does not allow or one with a colon. A file with
  // elements nested deeper than 256 cannot be loaded.
  boost::shared_ptr<Setting> addSubSetting(const std::string& name);

private:
  _xmlNode* node_;
};

}  // namespace Storage

#endif
