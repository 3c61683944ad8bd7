#include "standin/json_line.h"

#include <cstdio>

#include "util/text.h"

namespace standin {
namespace {

// Bytes above 0x7F are parts of UTF-8, which JSON takes as it is.
void AppendQuoted(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      out += escape;
    } else {
      out += c;
    }
  }
  out += '"';
}

}  // namespace

void JsonLine::Key(std::string_view key) {
  if (!members_.empty()) members_ += ',';
  AppendQuoted(members_, key);
  members_ += ':';
}

JsonLine& JsonLine::Text(std::string_view key, std::string_view value) {
  Key(key);
  AppendQuoted(members_, value);
  return *this;
}

JsonLine& JsonLine::Text(std::string_view key, std::wstring_view value) {
  return Text(key, NarrowUtf8(value));
}

JsonLine& JsonLine::Number(std::string_view key, std::uint64_t value) {
  Key(key);
  members_ += std::to_string(value);
  return *this;
}

// As text: JSON has no hexadecimal numbers, and people search for codes as headers write them.
JsonLine& JsonLine::Code(std::string_view key, HResult value) { return Text(key, CodeText(value)); }

JsonLine& JsonLine::Flag(std::string_view key, bool value) {
  Key(key);
  members_ += value ? "true" : "false";
  return *this;
}

}  // namespace standin
