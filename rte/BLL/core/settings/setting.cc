#include "rte/BLL/core/setting.h"

#include "rte/BLL/core/settings/xml_text.h"
#include <boost/make_shared.hpp>
#include <iostream>

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

}  // namespace Storage
