#include "xml/xml_node.h"

#include "testing/unit_test.h"

namespace {

std::string Times(int count, std::string_view piece) {
  std::string text;
  for (int i = 0; i < count; ++i) text += piece;
  return text;
}

// The document as it is written, or the parser's message and where it stopped.
std::string Parsed(const std::string& text) {
  XmlNode root;
  try {
    root.Parse(text);
    return root.Serialise();
  } catch (const exXML& error) {
    return error.what() + (" at " + std::to_string(error.position()));
  }
}

}  // namespace

TEST(XmlParser, ReadsDocuments) {
  const Table<std::string, std::string> table = {
      {"blanks, the zero byte among them", std::string(" \t\r\n\0<a/>", 9), "<a/>\n"},
      {"single quotes, later duplicate, order", "<a z='1' b = \"x\" version='3' z='2' flag/>",
       "<a version=\"3\" b=\"x\" z=\"2\"/>\n"},
      {"an attribute without a name", "<a ='1'/>", "<a/>\n"},
      // So many that a sort which does not keep their order shows it.
      {"the last of equals", "<a" + Times(99, " k='1'") + " k='2'/>", "<a k=\"2\"/>\n"},
      {"blanks around text", "<a>  w x\t</a>", "<a>w x\t</a>\n"},
      {"references", "<a>&#65;&amp;&nbsp;&#x4F;&#x3c;&#321;&apos;</a>",
       "<a>A&amp;\xA0O&lt;A&apos;</a>\n"},
      {"text behind children", "<r><a><b/>\n t</a></r>", "<r>\n  <a>\n    <b/>\nt  </a>\n</r>\n"},
      {"CDATA", "<a><![CDATA[x]]y>]]></a>", "<a>\n  <![CDATA[x]]y>]]>\n</a>\n"},
      {"CDATA as the root, not closed", "<![CDATA[x]]", "<![CDATA[x]]]]>\n"},
      {"prolog", "<?xml encoding='UTF-8' ?><!-- c --><a/>",
       "<?xml  encoding=\"UTF-8\"?>\n<!--  c -->\n<a/>\n"},
      {"a comment belongs to the next child", "<a><!x><b/></a>", "<a>\n<!x >\n  <b/>\n</a>\n"},
      {"a comment before text or the end goes", "<a><!x>t</a>", "<a>t</a>\n"}};
  table.Expect(Parsed);
}

TEST(XmlParser, TakesTheseBytesIntoNames) {
  for (const int behind : {0, 40}) {  // bytes near the end are looked at one by one
    const auto taken = [&](const std::string& front, const std::string& back) {
      std::string bytes;
      for (int code = 0; code < 256; ++code) {
        const std::string element = front + static_cast<char>(code) + back;
        if (Parsed(element + Times(behind, " ")) == element + "\n") bytes += element[front.size()];
      }
      return bytes;
    };
    EXPECT_EQ(taken("<n", "/>"),
              "!-.0123456789:?ABCDEFGHIJKLMNOPQRSTUVWXYZ[_abcdefghijklmnopqrstuvwxyz");
    EXPECT_EQ(taken("<n k", "=\"\"/>"),
              "-.0123456789:ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz");
  }
}

TEST(XmlParser, NamesTheFault) {
  const std::string inA = " while parsing node \"a\"", end = "unexpected end of file";
  const std::string closing = "missing or incomplete closing tag" + inA;
  const std::string entity = "invalid entity reference: ";
  const Table<std::string, std::string> table = {
      {"<", "unnamed node at 1"},
      {"<a>", end + inA + " at 3"},
      {"<!DOCTYPE x", end + " while parsing node \"!DOCTYPE\" with value \" x\" at 11"},
      {"<?xml version='1' x>", "invalid character in PI while parsing node \"?xml\" at 19"},
      {"<a b=1>", "attribute value must be enclosed in double quotes" + inA + " at 5"},
      {"<a b='1>",
       "unexpected EOF while parsing attribute value: no closing quote" + inA + " at 8"},
      {"<a/ >", "no closing angle brace for empty node" + inA + " at 3"},
      {"<a b='1'\"", "no closing angle brace" + inA + " at 8"},
      {"<a>text",
       "unexpected EOF while looking for value or closing tag" + inA + " with value \"text\" at 7"},
      {"<a></a >", closing + " at 6"},
      {"<a>0123456789012345678901234567890123</b>",
       closing + " with value \"01234567890123456789012345678901...\" at 39"},
      {"<a>x&copy;</a>", entity + "\"copy\"" + inA + " with value \"x\" at 10"},
      // The message ends at the zero.
      {std::string("<a>&\0gt;</a>", 12), entity + "\" at 8"},
      {"<a>&#;</a>", entity + "\"#\"" + inA + " at 6"},
      {"<a>&#x4G;</a>", entity + "\"#x4G\"" + inA + " at 9"},
      {"<a b='&amp'/>", end + inA + " at 13"},
      {Times(257, "<a>"), "elements nested too deeply" + inA + " at 770"},
      {Times(256, "<a>") + "</>", closing + " at 770"},
      {"<a " + Times(4097, "b=''") + "/>", "too many attributes" + inA + " at 16391"},
      // Ten thousand nodes are always allowed; more need some text, and very many more of it.
      {"<a>" + Times(10000, "<!>") + "</a>", "<a/>\n"},
      {"<a>" + Times(40000, "<!>"), "out of memory at 66650"},
      {"<a>" + Times(1'000'000, "<!>"), "out of memory at 706811"}};
  table.Expect(Parsed);
}

TEST(XmlNode, IsCopiedDeepAndLosesChildrenAnywhere) {
  XmlNode first;
  first.Parse("<?xml encoding='utf-8'?><r><a b='1'><?xml encoding='windows-1251'?><c/></a>t</r>");
  const std::string text = first.Serialise();
  const XmlNode copy(first);
  first.FirstSpecial()->SetAttribute("encoding", "changed");
  first = *first.FirstChild();
  EXPECT_EQ(first.FindChild("c")->Next(), nullptr);
  EXPECT_EQ(copy.Serialise(), text);
  EXPECT_TRUE(copy.DeclaresCodePage() && copy.CodePage() == kCodePageUtf8) << "the root's counts";
  XmlNode root;
  root.Parse("<a><b/><!n><c/><d/></a>");
  root.RemoveChild(*root.FindChild("d"));
  root.AddChild("x");
  EXPECT_EQ(root.Serialise(), "<a>\n  <b/>\n<!n >\n  <c/>\n  <x/>\n</a>\n");
  root.RemoveChild(*root.FindChild("c"));
  root.RemoveChild(*root.FindChild("b"));
  root.AddChild("y");
  EXPECT_EQ(root.Serialise(), "<a>\n  <x/>\n  <y/>\n</a>\n");
  root.RemoveChild(*root.FindChild("y"));
  root.RemoveChild(*root.FindChild("x"));
  EXPECT_EQ(root.Serialise(), "<a/>\n");
}

TEST(LoadXml, LogsWhatDoesNotParseAndLeavesWhatWasReadWhole) {
  const Table<const char*, std::string> table = {
      {"\xEF\xBB\xBF<a><![CDATA[t]]></a>", "<a>\n  <![CDATA[t]]>\n</a>\n"},
      {"<a><b>1</b><c>2</b></a>", "<a>\n  <b>1</b>\n</a>\n \"2\"  (at position 17 )"},
      {"\xEF\xBB\xBF<a>1<b/></a>", "<a/>\n \"1\"  (at position 8 )"}};
  table.Expect([](const char* text) {
    XmlNode root;
    const LogCapture log;
    if (LoadXml(text, &root)) return root.Serialise();
    EXPECT_TRUE(log.Has("XML parser error: missing or incomplete closing tag while parsing node "));
    return root.Serialise() + log.Lines().at(0).substr(log.Lines().at(0).rfind(" \""));
  });
}
