// The look at a message before it is parsed, and escaping.
#include "host/netconf/xml_text.h"

#include <gtest/gtest.h>

namespace host {
namespace {

using Fault = XmlOutline::Fault;

struct Case {
  std::string xml;
  Fault fault;
  const char* root;
  const char* attributes;
};

TEST(ScanXmlTest, FindsRootAndFaults) {
  const Case cases[] = {
      {"<a/>", Fault::kNone, "a", ""},
      {"\n<?xml version='1.0'?><!-- <b> --> <x:a  m=\"1>\" n='2' ><b/></x:a >", Fault::kNone, "x:a",
       "m=\"1>\" n='2'"},
      {"<a m='1'/>", Fault::kNone, "a", "m='1'"},
      {"<a><![CDATA[</a><b><c><d><e>]]></a>", Fault::kNone, "a", ""},
      {"<a><b><c/></b></a>", Fault::kNone, "a", ""},
      {"<a><b><c><d/></c></b></a>", Fault::kNone, "a", ""},
      {"<a><b><c><d></d></c></b></a>", Fault::kTooDeep, "a", ""},
      {"<a k='v'><b></a>", Fault::kMalformed, "a", "k='v'"},
      {"</a>", Fault::kMalformed, "", ""},
      {"<a><b", Fault::kMalformed, "a", ""},
      {"<a><!-- ", Fault::kMalformed, "a", ""},
      {"<!DOCTYPE a [<!ENTITY x 'y'>]><a/>", Fault::kMalformed, "", ""},
      {std::string("<a>\0</a>", 8), Fault::kMalformed, "", ""},
      {"", Fault::kMalformed, "", ""},
      {"<>", Fault::kMalformed, "", ""},
  };
  for (const Case& c : cases) {
    const XmlOutline outline = ScanXml(c.xml, 3);
    EXPECT_EQ(outline.fault, c.fault) << c.xml;
    EXPECT_EQ(outline.root, c.root) << c.xml;
    EXPECT_EQ(outline.root_attributes, c.attributes) << c.xml;
  }
}

std::string Repeat(const std::string& text, size_t count) {
  std::string repeated;
  while (count-- > 0) repeated += text;
  return repeated;
}

TEST(ScanXmlTest, BoundsWhatTakesTheParserLong) {
  const struct {
    std::string before, repeated, after;
    size_t limit;
    Fault fault;
  } cases[] = {
      {"<a><b ", "k='1>' ", "/></a>", kMaxAttributes, Fault::kTooManyAttributes},
      {"<a ", "xmlns:k = \"u\"\n", "><b/></a>", kMaxAttributes, Fault::kTooManyAttributes},
      {"<a>" + Repeat("<b" + Repeat(" xmlns:k='u'", 64) + ">", 4) + "<c ", "xmlns:k='u' ",
       "/></b></b></b></b></a>", 0, Fault::kTooManyAttributes},
      {"<a><b><filter select=\"", "-", "\"/></b></a>", kMaxSelectBytes, Fault::kSelectTooLong},
      {"<a><b><c><d x:select='", "(", "'/></c></b></a>", kMaxSelectBytes, Fault::kSelectTooLong},
      // The operation and the filter count.
      {"<a><b><x:filter><c>", "<d/>", "</c></x:filter></b></a>", kMaxParameterElements - 3,
       Fault::kTooManyParameters},
      {"<a><b>", "<c/>", "</b></a>", kMaxParameterElements - 1, Fault::kTooManyParameters},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ScanXml(c.before + Repeat(c.repeated, c.limit) + c.after, 8).fault, Fault::kNone)
        << c.before << c.repeated;
    EXPECT_EQ(ScanXml(c.before + Repeat(c.repeated, c.limit + 1) + c.after, 8).fault, c.fault)
        << c.before << c.repeated;
  }
  const std::string large = "<a><b><filter/><config><c>" + Repeat("<d xmlns='u'/>", 65536);
  EXPECT_EQ(ScanXml(large + "</c></config></b></a>", 8).fault, Fault::kNone);
}

TEST(ScanXmlTest, NoticesForeignAttributes) {
  const std::string start = std::string("<a xmlns:n='") + kNetconfNamespace + "' k='1'><b><config>";
  const std::string netconf = std::string("='") + kNetconfNamespace + "'";
  const struct {
    std::string xml;
    bool foreign;
  } cases[] = {
      {"<c xmlns='u' n:operation='delete'/>", false},
      {"<c m:operation='delete' xmlns:m" + netconf + "/>", false},
      {"<c xmlns:n='u'/><c n:operation='delete'/>", false},
      {"<c xmlns:n='u'/><c><d n:operation='delete'/></c>", false},
      {"<c operation='delete'/>", true},
      {"<c xmlns" + netconf + " operation='delete'/>", true},
      {"<c n:operations='delete'/>", true},
      {"<c xmlns:n='u'><d n:operation='delete'/></c>", true},
      {"<c xmlns:m" + netconf + "/><c m:operation='delete'/>", true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ScanXml(start + c.xml + "</config></b></a>", 8).foreign_attributes, c.foreign)
        << c.xml;
  }
  EXPECT_FALSE(ScanXml("<a><b><filter type='x'><c k='1'/></filter></b></a>", 8).foreign_attributes);
}

TEST(CompleteNamespacesTest, PutsThemWhereTheyAreMissing) {
  const std::string base = std::string("=\"") + kNetconfNamespace + "\"";
  const std::string none = std::string("=\"") + kNoNamespace + "\"";
  const std::string rpc = "<n:rpc xmlns:n='u'>", own = " xmlns:acl-app-netconf" + base;
  const std::pair<std::string, std::string> cases[] = {
      {rpc + "<a k='1'><b/><n:c><d/></n:c></a></n:rpc>",
       rpc + "<a xmlns" + base + " k='1'><b/><n:c><d/></n:c></a></n:rpc>"},
      {rpc + "<n:a><filter><x/><y:z/></filter><b/></n:a></n:rpc>",
       rpc + "<n:a><filter xmlns" + base + "><x xmlns" + none + "/><y:z xmlns:y" + none +
           "/></filter><b xmlns" + base + "/></n:a></n:rpc>"},
      {rpc + "<n:a><config ><c xmlns='v' operation='x'><d operation = \"y\"/></c></config></n:a>"
             "</n:rpc>",
       rpc + "<n:a><config xmlns" + base + own +
           " ><c xmlns='v' acl-app-netconf:operation='x'><d acl-app-netconf:operation = \"y\"/>"
           "</c></config></n:a></n:rpc>"},
      {"<rpc><get/></rpc>", "<rpc xmlns" + none + "><get xmlns" + base + "/></rpc>"},
  };
  for (const auto& [xml, completed] : cases) {
    EXPECT_TRUE(ScanXml(xml, 8).namespaces_missing) << xml;
    EXPECT_EQ(CompleteNamespaces(xml), completed);
    EXPECT_FALSE(ScanXml(completed, 8).namespaces_missing) << completed;
  }
  const std::string many = rpc + Repeat("<y:z/>", kMaxParameterElements + 1) + "</n:rpc>";
  EXPECT_EQ(CompleteNamespaces(many), many);
}

TEST(XmlEscapeTest, LeavesNoMarkupAndNoControlCharacters) {
  EXPECT_EQ(XmlEscape("a<b>&\"c\" 100%\n\x01"), "a&lt;b&gt;&amp;&quot;c&quot; 100%\n?");
  EXPECT_EQ(XmlEscape("\u00e9\u20ac\U0001f600"), "\u00e9\u20ac\U0001f600");
  // Lone and missing continuation, overlong, surrogate, beyond Unicode, no character, cut off.
  EXPECT_EQ(XmlEscape("\x80|\xc3(|\xc0\xaf|\xed\xa0\x80|\xf5\x80\x80\x80|\xef\xbf\xbf|\xe2\x82"),
            "?|?(|??|???|????|???|??");
}

}  // namespace
}  // namespace host
