// Conversions and small questions about text. `std::string` is UTF-8 unless a name says otherwise.
#ifndef KUPDATE_UTIL_TEXT_H_
#define KUPDATE_UTIL_TEXT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// UTF-8 to wide (UTF-16 on Windows, UTF-32 natively). Invalid sequences become U+FFFD.
std::wstring WidenUtf8(std::string_view text);

/// Wide to UTF-8. Unpaired surrogates become U+FFFD.
std::string NarrowUtf8(std::wstring_view text);

/// The system's ANSI code page to wide. Natively the same as WidenUtf8.
std::wstring WidenAnsi(std::string_view text);

/// Wide to the system's ANSI code page; nothing when that has no exact form. Natively UTF-8.
std::optional<std::string> NarrowAnsi(std::wstring_view text);

/// windows-1251 to UTF-8. Total: the one unassigned byte, 0x98, becomes U+0098.
std::string Utf8FromCp1251(std::string_view bytes);

/// The length of the well-formed UTF-8 character at the start of `bytes`; 0 without such a character.
std::size_t Utf8CharLength(std::string_view bytes);

/// Whether `bytes` is well-formed UTF-8 (no overlong forms, no surrogates, at most U+10FFFF).
bool IsValidUtf8(std::string_view bytes);

/// Equality without regard to the case of ASCII letters; other bytes must be the same.
bool EqualsIgnoreCase(std::string_view a, std::string_view b);
/// The same for paths: the case of letters is ignored as the file system does it.
bool EqualsIgnoreCase(std::wstring_view a, std::wstring_view b);

/// Decimal text to a number: leading blanks, one sign, then digits; what follows is ignored. Text
/// without a number gives 0, a number out of range the nearest value. Independent of the locale.
std::int64_t ParseInt64(std::string_view text);

/// `value` in decimal.
std::string DecimalText(std::int64_t value);

/// `value`, not negative, in decimal with leading zeros up to `width` digits.
std::string PaddedText(int value, std::size_t width);

/// "0x" and `value` in lower-case hexadecimal digits.
std::string HexText(std::uint32_t value);

/// A day as "%02d.%02d.%04d": day, month, year.
std::string DateText(int day, int month, int year);

#endif  // KUPDATE_UTIL_TEXT_H_
