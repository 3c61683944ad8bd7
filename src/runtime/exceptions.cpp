// The standard exceptions that carry a text, and the functions with which containers throw them.
// The compiler's own version comes with a second string class and a source of random numbers, a
// tenth of the library's size.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

// The runtime's own handler prints a readable type name to a terminal that hosts do not have, and
// brings a demangler of 45 KB for it.
namespace __gnu_cxx {
void __verbose_terminate_handler() { std::abort(); }
}  // namespace __gnu_cxx

namespace std {

namespace {

// Stands before the characters of an exception's text, which all copies of the exception share.
struct SharedText {
  atomic<long> owners = 1;
};

SharedText* Owner(const char* text) {
  return reinterpret_cast<SharedText*>(const_cast<char*>(text)) - 1;
}

}  // namespace

__cow_string::__cow_string(const char* text, size_t length) {
  auto* shared = new (::operator new(sizeof(SharedText) + length + 1)) SharedText;
  char* copy = reinterpret_cast<char*>(shared + 1);
  memcpy(copy, text, length);
  copy[length] = '\0';
  _M_p = copy;
}

__cow_string::__cow_string(const __cow_string& other) noexcept : _M_p(other._M_p) {
  ++Owner(_M_p)->owners;
}

__cow_string::~__cow_string() {
  if (--Owner(_M_p)->owners == 0) ::operator delete(Owner(_M_p));
}

logic_error::logic_error(const char* text) : _M_msg(text, strlen(text)) {}
logic_error::logic_error(const string& text) : _M_msg(text.data(), text.size()) {}
logic_error::logic_error(const logic_error& other) noexcept
    : exception(other), _M_msg(other._M_msg) {}
logic_error::~logic_error() noexcept = default;
const char* logic_error::what() const noexcept { return _M_msg._M_p; }

invalid_argument::invalid_argument(const char* text) : logic_error(text) {}
invalid_argument::invalid_argument(const string& text) : logic_error(text) {}
invalid_argument::~invalid_argument() noexcept = default;

runtime_error::runtime_error(const char* text) : _M_msg(text, strlen(text)) {}
runtime_error::runtime_error(const string& text) : _M_msg(text.data(), text.size()) {}
runtime_error::runtime_error(const runtime_error& other) noexcept
    : exception(other), _M_msg(other._M_msg) {}
runtime_error::~runtime_error() noexcept = default;
const char* runtime_error::what() const noexcept { return _M_msg._M_p; }

// Faults of our own code. No handler treats them differently.
void __throw_logic_error(const char* text) { throw logic_error(text); }
void __throw_length_error(const char* text) { throw logic_error(text); }
void __throw_out_of_range(const char* text) { throw logic_error(text); }
void __throw_out_of_range_fmt(const char* text, ...) { throw logic_error(text); }

// GCC 13 and later do not compile these two with their callers. The linker would take them from the
// runtime, and all other functions of strings with them.
#if __GNUC__ >= 13
template void string::_M_replace_cold(char*, size_type, const char*, size_type, size_type);
template void wstring::_M_replace_cold(wchar_t*, size_type, const wchar_t*, size_type, size_type);
#endif

void __throw_bad_alloc() { throw bad_alloc(); }
void __throw_bad_array_new_length() { throw bad_array_new_length(); }

}  // namespace std
