// Security descriptors: made from their texts, and judged.
#ifndef KUPDATE_UTIL_WIN_SECURITY_H_
#define KUPDATE_UTIL_WIN_SECURITY_H_

#include <string>
#include <vector>

#include "util/win/unique.h"

struct DescriptorTraits {
  using Type = PSECURITY_DESCRIPTOR;
  static Type None() { return nullptr; }
  static void Close(Type descriptor) { ::LocalFree(descriptor); }
};
using UniqueDescriptor = Unique<DescriptorTraits>;

/// The descriptor of a text in the system's own language for them; empty when it is wrong.
UniqueDescriptor DescriptorOf(const wchar_t* text);

/// The role of a file or folder in the path of a program.
enum class Part { kProgram, kItsFolder, kFolderAbove };

struct PathPart {
  std::wstring path;  ///< a root ends with a backslash, others do not
  Part part;
};

/// A program's file and its folders, up to the root of the volume. Empty for a text that is not
/// plainly a path from a drive's root.
std::vector<PathPart> PartsOf(std::wstring program);

/// Whether a descriptor lets other users than the system, its installer and administrators replace
/// the program whose path this is a part of, or put a file beside it. Owners count, because they
/// may change the rights of others. An entry that is not understood counts as all rights for all.
bool LetsOthersReplace(PSECURITY_DESCRIPTOR descriptor, Part part);

#endif  // KUPDATE_UTIL_WIN_SECURITY_H_
