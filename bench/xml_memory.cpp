// How much memory parsing takes at its peak, the input included, for the inputs that need most of
// it. Prints "label;input bytes;peak bytes" for each.
#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

#include "bench/feed.h"
#include "util/diag_log.h"
#include "xml/xml_node.h"

namespace {

std::size_t now = 0;
std::size_t peak = 0;

std::string Repeated(std::string_view head, std::string_view piece, std::string_view tail) {
  constexpr std::size_t kBytes = 8000000;
  std::string text(head);
  while (text.size() < kBytes) text += piece;
  return text.append(tail);
}

void Measure(const char* label, const std::string& input) {
  const std::size_t before = now;
  peak = before;
  {
    XmlNode root;
    LoadXml(input, &root);
  }
  std::printf("%s;%zu;%zu\n", label, input.size(), peak - before);
}

}  // namespace

void* operator new(std::size_t size) {
  void* memory = std::malloc(size);
  if (!memory) throw std::bad_alloc();
  now += malloc_usable_size(memory);
  peak = std::max(peak, now);
  return memory;
}

void operator delete(void* memory) noexcept {
  now -= malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

int main() {
  DiagLog::Instance().Start([] { return std::wstring(); }, "");
  Measure("a feed of 10,000 items", MakeFeed(10000, 2));
  Measure("a value of one byte an element", Repeated("<r>", "<a>x</a>", "</r>"));
  Measure("empty elements", Repeated("<r>", "<a/>", "</r>"));
  Measure("empty elements, cut", Repeated("<r>", "<a/>", ""));
  Measure("comments before an element", Repeated("", "<!>", "<r/>"));
  Measure("comments and elements", Repeated("<r>", "<!><a/>", "</r>"));
  Measure("comments that belong to nothing", Repeated("<r>", "<!>", "</r>"));
  Measure("CDATA sections", Repeated("<r>", "<![CDATA[]]>", "</r>"));
  Measure("one attribute an element", Repeated("<r>", "<a b=''/>", "</r>"));
  Measure("attributes of one element", Repeated("<r ", "b=''c=''", "/>"));
  Measure("references", Repeated("<r>", "&lt;", "</r>"));
}
