// The fields of one journal line.
#ifndef KUPDATE_STANDIN_JSON_LINE_H_
#define KUPDATE_STANDIN_JSON_LINE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "standin/codes.h"

namespace standin {

/// Collects members of a JSON object in the order they are added. Keys are plain ASCII words.
class JsonLine {
 public:
  /// `value` is UTF-8.
  JsonLine& Text(std::string_view key, std::string_view value);
  JsonLine& Text(std::string_view key, std::wstring_view value);
  JsonLine& Number(std::string_view key, std::uint64_t value);
  /// As text, "0x80200003".
  JsonLine& Code(std::string_view key, HResult value);
  JsonLine& Flag(std::string_view key, bool value);

  /// The members, without the braces around them: `"call":"Resume","result":"0x00000000"`.
  const std::string& members() const { return members_; }

 private:
  void Key(std::string_view key);

  std::string members_;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_JSON_LINE_H_
