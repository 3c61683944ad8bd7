// The one way to <windows.h>: lean, wide, and without the macros that rename our own functions.
#ifndef KUPDATE_UTIL_WIN_WINDOWS_LEAN_H_
#define KUPDATE_UTIL_WIN_WINDOWS_LEAN_H_

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

// With these, `FileSystem::DeleteFile` would have one name here and another in its header's other
// users.
#undef DeleteFile
#undef CopyFile
#undef GetFileTime
#undef CreateEvent
#undef MoveFile
#undef ReadFile
#undef WriteFile

#endif  // KUPDATE_UTIL_WIN_WINDOWS_LEAN_H_
