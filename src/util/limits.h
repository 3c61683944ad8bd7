// Sizes above which foreign data is refused.
#ifndef KUPDATE_UTIL_LIMITS_H_
#define KUPDATE_UTIL_LIMITS_H_

#include <cstdint>

/// A feed, while it is downloaded and when it is read.
inline constexpr std::uint64_t kMaxFeedBytes = std::uint64_t{8} << 20;

/// The answer to a report; no program reads it.
inline constexpr std::uint64_t kMaxAnswerBytes = std::uint64_t{1} << 20;

#endif  // KUPDATE_UTIL_LIMITS_H_
