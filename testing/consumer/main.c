/* A foreign program that links the library. Exit code 0 when a value that the library stored comes back. It needs no
 * C runtime, so it is linked by Microsoft's linker too. */
#include <dllkupdate.h>

static const char kId[] = "package-check";
static const char kLocale[] = "uk-UA";

int main(void) {
  char text[sizeof kLocale];
  int32_t size = sizeof text;
  DLLOnApplicationStartup(kId, "win", "", "", 86400, 1, 2, 3, 4, true);
  if (DLLSetLocale(kId, kLocale) != KUPDATE_S_OK) return 1;
  if (DLLGetLocale(kId, text, &size) != KUPDATE_S_OK) return 2;
  if (size != (int32_t)sizeof text) return 3;
  for (int i = 0; i < size; ++i) {
    if (text[i] != kLocale[i]) return 4;
  }
  return 0;
}

#ifdef _MSC_VER
__declspec(dllimport) void __stdcall ExitProcess(unsigned code);
void start(void) { ExitProcess((unsigned)main()); }
#endif
