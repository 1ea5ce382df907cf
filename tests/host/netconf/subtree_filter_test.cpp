// Subtree filters against a small configuration, a case per rule of RFC 6241 section 6.2.
#include "host/netconf/reply/filter/subtree_filter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "host/cdb/schema/schema.h"
#include "host/xml/generic_xml.h"

namespace host {
namespace {

// Short forms: in filters and results "L2(x)" and the like stand for what is long in XML.
std::string Expand(std::string text) {
  const std::pair<const char*, const char*> rules[] = {
      {"\\{", "<config xmlns=\"urn:acl-app:acl\"><access-list>"},
      {"\\}", "</access-list></config>"},
      {"\\(", "<acl-profile><ingress>"},
      {"\\)", "</ingress></acl-profile>"},
      {"P:", "access-list"},
      {"E:", "access-list-entry"},
      {"N:", "interface-name"},
  };
  for (const auto& [from, to] : rules) text = std::regex_replace(text, std::regex(from), to);
  return text;
}

constexpr char kData[] =
    "{(<P:><acl-type>l2</acl-type><acl-name>A</acl-name>"
    "<acl-priority-l2><priority>5</priority></acl-priority-l2>"
    "<E:><ace-priority>1</ace-priority><match><vlan>7</vlan></match></E:>"
    "<E:><ace-priority>2</ace-priority></E:></P:>"
    "<P:><acl-type>l3</acl-type><acl-name>B</acl-name>"
    "<acl-priority-l3><priority>5</priority></acl-priority-l3></P:>)"
    "<interface><N:>e0</N:><ingress>A</ingress><ingress>B</ingress></interface>"
    "<interface><N:>e1</N:><ingress>B</ingress></interface>}";

struct FilterCase {
  const char* name;
  const char* filter;
  const char* selected;
};
void PrintTo(const FilterCase& c, std::ostream* out) { *out << c.name; }

const FilterCase kFilterCases[] = {
    {"Empty", "", ""},
    {"TopLevelSelection", "<config xmlns='urn:acl-app:acl'/>", kData},
    {"OtherNamespace", "<config xmlns='urn:other'/>", ""},
    {"NoNamespaceMatchesAny", "<config xmlns=''><access-list><interface/></access-list></config>",
     "{<interface><N:>e0</N:><ingress>A</ingress><ingress>B</ingress></interface>"
     "<interface><N:>e1</N:><ingress>B</ingress></interface>}"},
    {"SelectionWithBlanks", "{(<P:><acl-name> \n</acl-name></P:>)}",
     "{(<P:><acl-type>l2</acl-type><acl-name>A</acl-name></P:>"
     "<P:><acl-type>l3</acl-type><acl-name>B</acl-name></P:>)}"},
    {"KeysComeAlong", "{(<P:><E:><match/></E:></P:>)}",
     "{(<P:><acl-type>l2</acl-type><acl-name>A</acl-name>"
     "<E:><ace-priority>1</ace-priority><match><vlan>7</vlan></match></E:></P:>)}"},
    {"ContentMatchSelectsTheEntry", "{<interface><N:>e1</N:></interface>}",
     "{<interface><N:>e1</N:><ingress>B</ingress></interface>}"},
    {"ContentMatchOfALeafList", "{<interface><ingress>A</ingress></interface>}",
     "{<interface><N:>e0</N:><ingress>A</ingress><ingress>B</ingress></interface>}"},
    {"ContentMatchWithSelection", "{<interface><ingress>B</ingress><N:/></interface>}",
     "{<interface><N:>e0</N:><ingress>B</ingress></interface>"
     "<interface><N:>e1</N:><ingress>B</ingress></interface>}"},
    {"AllContentMustMatch", "{<interface><N:>e1</N:><ingress>A</ingress></interface>}", ""},
    {"ContentMatchIsOfTheValue", "{(<P:><E:><match><vlan> 007 </vlan></match></E:></P:>)}",
     "{(<P:><acl-type>l2</acl-type><acl-name>A</acl-name>"
     "<E:><ace-priority>1</ace-priority><match><vlan>7</vlan></match></E:></P:>)}"},
    {"ContentMatchFails", "{<interface><N:>e9</N:></interface>}", ""},
    {"ContentOfNoValue", "{(<P:><acl-type>l9</acl-type></P:>)}", ""},
    {"TwoFiltersOnOneListUnite",
     "{<interface><N:>e0</N:><ingress>A</ingress><N:/></interface>"
     "<interface><N:>e1</N:></interface>}",
     "{<interface><N:>e0</N:><ingress>A</ingress></interface>"
     "<interface><N:>e1</N:><ingress>B</ingress></interface>}"},
    {"SiblingsUnite",
     "{(<P:><acl-name>B</acl-name><acl-priority-l3/></P:>)<interface><N:/>"
     "</interface>}",
     "{(<P:><acl-type>l3</acl-type><acl-name>B</acl-name>"
     "<acl-priority-l3><priority>5</priority></acl-priority-l3></P:>)"
     "<interface><N:>e0</N:></interface><interface><N:>e1</N:></interface>}"},
    {"ContentMatchOnlyKeepsTheKeys", "{(<P:><acl-name>B</acl-name><E:/></P:>)}",
     "{(<P:><acl-type>l3</acl-type><acl-name>B</acl-name></P:>)}"},
    {"UnknownNodeSelectsNothing", "{<interface><bogus/></interface><bogus/>}", ""},
    {"AttributeMatchesNoData", "{<interface type='x'/>}", ""},
    {"ContainmentOfALeafSelectsNothing", "{<interface><N:><x/></N:></interface>}", ""},
};

class SubtreeFilterTest : public testing::TestWithParam<FilterCase> {
 protected:
  void SetUp() override {
    DatastoreErrors errors;
    context_ = LoadSchema(ACL_YANG_DIR, &errors);
    ASSERT_NE(context_, nullptr) << errors.front().message;
    xml_ = GenericXml::Create();
  }
  Tree Parse(const std::string& text) {
    lyd_node* tree = nullptr;
    EXPECT_EQ(lyd_parse_data_mem(context_.get(), text.c_str(), LYD_XML,
                                 LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &tree),
              LY_SUCCESS)
        << ly_errmsg(context_.get());
    return Tree(tree);
  }
  static std::string Print(const lyd_node* tree) {
    char* text = nullptr;
    lyd_print_mem(&text, tree, LYD_XML, LYD_PRINT_SHRINK);
    const std::string result = text != nullptr ? text : "";
    free(text);
    return result;
  }

  ContextPtr context_;
  std::unique_ptr<GenericXml> xml_;
};

TEST_P(SubtreeFilterTest, Selects) {
  const Tree data = Parse(Expand(kData));
  std::string error;
  const Tree filter = xml_->Parse("<filter xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'>" +
                                      Expand(GetParam().filter) + "</filter>",
                                  &error);
  ASSERT_NE(filter, nullptr) << error;
  bool whole = false;
  const SubtreeFilter compiled(filter.get(), context_.get());
  const Tree part = SubtreeFilter::Select(compiled.Top(), data.get(), &whole);
  const std::string selected = whole ? Print(data.get()) : part ? Print(part.get()) : "";
  EXPECT_EQ(selected, Expand(GetParam().selected));
}

INSTANTIATE_TEST_SUITE_P(Rules, SubtreeFilterTest, testing::ValuesIn(kFilterCases),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace host
