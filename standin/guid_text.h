// Ids of jobs as text.
#ifndef KUPDATE_STANDIN_GUID_TEXT_H_
#define KUPDATE_STANDIN_GUID_TEXT_H_

#include <string>

struct _GUID;

namespace standin {

/// Registry form: "{01234567-89AB-CDEF-0123-456789ABCDEF}".
std::string GuidText(const _GUID& guid);
/// A new id. Throws std::runtime_error when the system makes none.
std::string NewGuidText();
/// The reverse of GuidText.
_GUID GuidFromText(const std::string& text);

}  // namespace standin

#endif  // KUPDATE_STANDIN_GUID_TEXT_H_
