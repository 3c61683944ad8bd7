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

/// What a file or folder is to the program whose path it is a part of.
enum class Part { kProgram, kItsFolder, kFolderAbove };

struct PathPart {
  std::wstring path;  ///< a root ends with a backslash, others do not
  Part part;
};

/// A program's file and its folders, up to the root of the volume. Empty for what is not plainly a
/// path from a drive's root.
std::vector<PathPart> PartsOf(std::wstring program);

/// Whether a descriptor lets anybody but the system, its installer and administrators put another
/// program into the place of the one that this is a part of the path of, or something beside it. An
/// owner may change what others may do. What is not understood lets everybody.
bool LetsOthersReplace(PSECURITY_DESCRIPTOR descriptor, Part part);

#endif  // KUPDATE_UTIL_WIN_SECURITY_H_
