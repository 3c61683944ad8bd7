#include "util/posix/file_step.h"

#include <cerrno>

namespace {

FileStepGuard currentGuard = nullptr;

}  // namespace

void SetFileStepGuard(FileStepGuard guard) { currentGuard = guard; }

bool HasFileStepGuard() { return currentGuard != nullptr; }

bool MayDo(const char* step, const std::string& path) {
  const int code = currentGuard ? currentGuard(step, path) : 0;
  if (code != 0) errno = code;
  return code == 0;
}
