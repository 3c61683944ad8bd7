// A downloaded feed.
#ifndef KUPDATE_UPDATE_FEED_FILE_H_
#define KUPDATE_UPDATE_FEED_FILE_H_

#include <string>

#include "xml/xml_node.h"

/// Reads and parses a feed.
/// @param path  UTF-8
/// Throws std::runtime_error when it cannot be read, is larger than kMaxFeedBytes or does not
/// parse: a feed is taken whole or not at all.
XmlNode LoadFeed(const std::string& path);

#endif  // KUPDATE_UPDATE_FEED_FILE_H_
