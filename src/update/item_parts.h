// The parts of a feed's item that decide whether it counts.
#ifndef KUPDATE_UPDATE_ITEM_PARTS_H_
#define KUPDATE_UPDATE_ITEM_PARTS_H_

#include <string_view>

#include "xml/xml_node.h"

/// The first child of each name; null for a name that no child has.
struct ItemParts {
  const XmlNode* version = nullptr;  ///< "version:version"
  const XmlNode* target = nullptr;   ///< "update:target"
};

/// Finds the parts in one walk over the children.
/// @return false when the item is for another application or platform; `parts` is of no use then.
bool FindParts(const XmlNode& item, std::string_view appId, std::string_view platform,
               ItemParts* parts);

#endif  // KUPDATE_UPDATE_ITEM_PARTS_H_
