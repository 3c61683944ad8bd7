// Searches in bytes, in which a parser spends most of its time. Private to the XML sources.
#ifndef KUPDATE_XML_XML_SCAN_H_
#define KUPDATE_XML_XML_SCAN_H_

#include <bit>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>

/// As many bytes as are looked at together.
using XmlBytes [[gnu::vector_size(16)]] = char;

/// A bit for each of the bytes: whether its element of `comparison` holds.
template <class Comparison>
unsigned BitsOf(Comparison comparison) {
  return static_cast<unsigned>(_mm_movemask_epi8(reinterpret_cast<__m128i>(comparison)));
}

inline XmlBytes LoadBytes(const char* at) {
  XmlBytes bytes;
  std::memcpy(&bytes, at, sizeof bytes);
  return bytes;
}
#endif

/// The first byte from `at` on for which `isWanted` holds; `end` without such a byte.
/// @param isWanted  tells for one byte, and for several that it gets as a vector: so it does
///                  without && and ||
template <class Char, class IsWanted>
Char* FindFirst(Char* at, Char* end, IsWanted isWanted) {
#ifdef __SSE2__
  for (; end - at >= 16; at += 16) {
    const unsigned found = BitsOf(isWanted(LoadBytes(at)));
    if (found != 0) return at + std::countr_zero(found);
  }
#endif
  while (at != end && !isWanted(*at)) ++at;
  return at;
}

/// Whether `text` stands at `at`. Both lie in one array of bytes that `end` ends, `text` before
/// `at`.
inline bool StandsAt(const char* at, const char* end, std::string_view text) {
#ifdef __SSE2__
  if (text.size() <= 16 && end - at >= 16) {
    const unsigned same = BitsOf(LoadBytes(at) == LoadBytes(text.data()));
    return std::countr_one(same) >= static_cast<int>(text.size());
  }
#endif
  return std::string_view(at, static_cast<std::size_t>(end - at)).starts_with(text);
}

#endif  // KUPDATE_XML_XML_SCAN_H_
