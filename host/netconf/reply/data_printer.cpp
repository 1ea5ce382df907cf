// Printing of views: see data_printer.h.
#include "host/netconf/reply/data_printer.h"

#include <cstdlib>
#include <cstring>

#include "host/cdb/list_order.h"
#include "host/xml/xml_text.h"

namespace host {
namespace {

std::string NamespaceDeclaration(const lys_module* module) {
  return std::string(" xmlns=\"") + XmlEscape(module->ns) + "\"";
}

}  // namespace

bool DataPrinter::Print(const ViewPart& part, std::string* xml) {
  switch (part.kind) {
    case ViewPart::Kind::kStart:
      Start(part, xml);
      return true;
    case ViewPart::Kind::kEnd:
      End(xml);
      return true;
    case ViewPart::Kind::kNodes:
      break;
  }
  if (part.page->lost()) return false;
  for (size_t at = part.first; at < part.first + part.count; ++at) {
    if (!PrintNode(part.page->InOrder(at), part.filter.get(), xml)) return false;
  }
  return true;
}

void DataPrinter::Start(const ViewPart& part, std::string* xml) {
  if (elements_.size() > depth_) {
    Element& last = elements_[depth_];
    if (pieces_ && last.schema == part.schema && last.keys == part.keys) {
      last.continued = true;
      ++depth_;
      return;
    }
    EndElements(depth_, xml);
  }
  elements_.push_back({part.schema, part.keys});
  ++depth_;
  if (part.always) PrintStarts(xml);
}

// The end itself is printed when it is clear that the next piece does not go on with the element.
void DataPrinter::End(std::string* xml) {
  --depth_;
  if (!pieces_ || !elements_[depth_].printed) EndElements(depth_, xml);
}

void DataPrinter::EndElements(size_t depth, std::string* xml) {
  while (elements_.size() > depth) {
    const Element& element = elements_.back();
    if (element.printed) *xml += element.tail + "</" + element.schema->name + ">";
    elements_.pop_back();
  }
}

void DataPrinter::PrintStarts(std::string* xml) {
  EndElements(depth_, xml);
  const lys_module* module = nullptr;
  for (Element& element : elements_) {
    if (!element.printed) {
      *xml += std::string("<") + element.schema->name;
      if (element.schema->module != module) *xml += NamespaceDeclaration(element.schema->module);
      *xml += ">" + element.keys;
      element.printed = true;
    }
    module = element.schema->module;
  }
}

bool DataPrinter::PrintNode(const lyd_node* node, const SubtreeFilter::NodeRefs* filter,
                            std::string* xml) {
  const bool listed = (node->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0;
  if (depth_ > 0 && elements_[depth_ - 1].continued && !listed) return true;
  Tree part;
  if (filter != nullptr) {
    bool whole = false;
    part = SubtreeFilter::Select(*filter, node, &whole);
    if (part == nullptr && !whole) return true;
  }
  const lyd_node* shown = part != nullptr ? part.get() : node;
  const Tree ordered = InKeyOrder(shown);
  char* raw = nullptr;
  if (lyd_print_mem(&raw, ordered != nullptr ? ordered.get() : shown, LYD_XML,
                    options_ | LYD_PRINT_SHRINK) != LY_SUCCESS) {
    return false;
  }
  const std::unique_ptr<char, decltype(&std::free)> text(raw, &std::free);
  if (raw == nullptr || *raw == '\0') return true;
  // What stands behind an element that the next piece may go on with waits for its end.
  const bool waits = pieces_ && depth_ > 0 && !listed && elements_.size() > depth_;
  if (waits) {
    xml = &elements_[depth_ - 1].tail;
  } else {
    PrintStarts(xml);
  }
  // libyang declares the namespace of every tree that it prints, known or not.
  const lys_module* module = depth_ > 0 ? elements_[depth_ - 1].schema->module : nullptr;
  const size_t name_end = 1 + std::strlen(node->schema->name);
  const std::string declared = NamespaceDeclaration(node->schema->module);
  if (module == node->schema->module &&
      std::strncmp(raw + name_end, declared.c_str(), declared.size()) == 0) {
    xml->append(raw, name_end).append(raw + name_end + declared.size());
  } else {
    *xml += raw;
  }
  return true;
}

}  // namespace host
