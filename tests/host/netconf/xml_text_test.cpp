// The look at a message before it is parsed, and escaping.
#include "host/xml/xml_text.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "host/cdb/schema/schema.h"
#include "host/netconf/message/config_builder.h"

namespace host {
namespace {

using Fault = XmlOutline::Fault;

struct OutlineCase {
  std::string xml;
  Fault fault;
  const char* root;
  const char* attributes;
};

TEST(ScanXmlTest, FindsRootAndFaults) {
  const OutlineCase cases[] = {
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
  for (const OutlineCase& c : cases) {
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

// What is plain is built as the parser reads it; the rest is left to the parser.
TEST(ConfigBuilderTest, BuildsWhatTheParserReads) {
  DatastoreErrors errors;
  const ContextPtr context = LoadSchema(ACL_YANG_DIR, &errors);
  const std::string profiles = "<acl-profile><ingress>", profile = "<acl-type>l3</acl-type>";
  const std::string name = "<acl-name>p</acl-name>", end = "</ingress></acl-profile>";
  const auto entry = [&](const std::string& content) {
    return profiles + "<access-list>" + profile + name + "<access-list-entry>" + content +
           "</access-list-entry></access-list>" + end;
  };
  const struct {
    std::string xml;
    bool plain;
  } kCases[] = {
      {"", true},
      {"<interface>\n <interface-name>a</interface-name><ingress>p</ingress>\n</interface>", true},
      {entry("<ace-priority>1</ace-priority><action><packet-handling><deny/></packet-handling>"
             "</action><match><source-ipv4-address><no-mask><ip>1.2.3.4</ip></no-mask>"
             "</source-ipv4-address><destination-port>http</destination-port></match>"),
       true},
      {entry("<ace-priority>1</ace-priority><match/><match><vlan>1</vlan><vlan>2</vlan></match>"),
       true},
      {profiles + "<access-list n:operation=\"delete\">" + profile + name + "</access-list>" + end,
       true},
      {"<interface xmlns=\"urn:acl-app:acl\" n:operation=\"create\"><interface-name>a"
       "</interface-name></interface>",
       true},
      {profiles + "<access-list>" + name + profile + "</access-list>" + end, false},
      {profiles + "<access-list>" + profile + "</access-list>" + end, false},
      {entry("<ace-priority>01 </ace-priority>"), false},
      {entry("<ace-priority>1</ace-priority><ace-priority>1</ace-priority>"), false},
      {entry("<ace-priority>1</ace-priority><match><vlan>5000</vlan></match>"), false},
      {entry("<ace-priority>1</ace-priority><match>x</match>"), false},
      {"<interface><interface-name>a&#98;</interface-name></interface>", false},
      {"<interface><interface-name>a</ingress></interface>", false},
      {"<interface><interface-name>a</interface-name></interface", false},
      {"<interface n:operation=\"create\" n:operation=\"merge\"><interface-name>a"
       "</interface-name></interface>",
       false},
      {"<!-- --><x/>", false},
      {"<m:interface xmlns:m=\"urn:acl-app:acl\"/>", false},
  };
  for (const auto& c : kCases) {
    const std::string start = "<config xmlns=\"urn:acl-app:acl\"";
    const std::string rest = "><access-list>" + c.xml + "</access-list></config>";
    const Tree built = BuildConfig(context.get(), start + rest, "");
    ASSERT_EQ(c.plain, built != nullptr) << c.xml;
    EXPECT_EQ(nullptr, ly_err_first(context.get())) << c.xml;
    if (!c.plain) continue;
    lyd_node* raw = nullptr;
    lyd_parse_data_mem(context.get(),
                       (start + " xmlns:n=\"" + kNetconfNamespace + "\"" + rest).c_str(), LYD_XML,
                       LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &raw);
    const Tree parsed(raw);
    constexpr uint32_t kAll = LYD_COMPARE_FULL_RECURSION | LYD_COMPARE_DEFAULTS;
    EXPECT_EQ(LY_SUCCESS, lyd_compare_siblings(parsed.get(), built.get(), kAll)) << c.xml;
    std::string texts[2];
    for (const lyd_node* tree : {parsed.get(), built.get()}) {
      char* text = nullptr;
      lyd_print_mem(&text, tree, LYD_XML, LYD_PRINT_SHRINK);
      if (text != nullptr) texts[tree == built.get()] = text;
      std::free(text);
    }
    EXPECT_EQ(texts[0], texts[1]);  // operations as well
  }
}

}  // namespace
}  // namespace host
