#include "update/feed_file.h"

#include <stdexcept>
#include <utility>

#include "util/files.h"
#include "util/limits.h"

XmlNode LoadFeed(const std::string& path) {
  std::string bytes;
  XmlNode feed;
  // The size is checked here again, because not every transfer service keeps the limit of a job.
  if (FileSystem::ReadFile(path, &bytes, kMaxFeedBytes) != FileSystem::ReadOutcome::kRead ||
      !LoadXml(std::move(bytes), &feed)) {
    throw std::runtime_error("The feed cannot be read.");
  }
  return feed;
}
