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

TEST(XmlEscapeTest, LeavesNoMarkupAndNoControlCharacters) {
  EXPECT_EQ(XmlEscape("a<b>&\"c\" 100%\n\x01"), "a&lt;b&gt;&amp;&quot;c&quot; 100%\n?");
  EXPECT_EQ(XmlEscape("\u00e9\u20ac\U0001f600"), "\u00e9\u20ac\U0001f600");
  // Lone and missing continuation, overlong, surrogate, beyond Unicode, no character, cut off.
  EXPECT_EQ(XmlEscape("\x80|\xc3(|\xc0\xaf|\xed\xa0\x80|\xf5\x80\x80\x80|\xef\xbf\xbf|\xe2\x82"),
            "?|?(|??|???|????|???|??");
}

}  // namespace
}  // namespace host
