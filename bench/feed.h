// Update feeds of any length, like those of publishers.
#ifndef KUPDATE_BENCH_FEED_H_
#define KUPDATE_BENCH_FEED_H_

#include <string>

/// A feed of `items` items, each of about 840 bytes and with a version of its own, newest last. The
/// first item is for the platform "x86", as is every `platforms`th after it. The same numbers give
/// the same text.
std::string MakeFeed(int items, int platforms);

#endif  // KUPDATE_BENCH_FEED_H_
