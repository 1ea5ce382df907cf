// Differences for people: see difference_text.h.
#include "tools/aclctl/difference_text.h"

#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/terminal.h"

namespace aclctl {
namespace {

std::string PrintLeaf(char sign, const std::string& name, const std::string& value) {
  const Colour colour = sign == '+' ? Colour::kGreen : Colour::kRed;
  return Coloured(colour,
                  std::string(1, sign) + "     " + name + (value.empty() ? "" : " ") + value) +
         "\n";
}

std::string PrintChange(const lyd_node* change) {
  const std::string operation = ChildText(change, "operation");
  const char sign = operation == "create" ? '+' : operation == "delete" ? '-' : ' ';
  std::string text = std::string(1, sign) + " " + ShortPath(ChildText(change, "path")) + "\n";
  for (const lyd_node* leaf : Children(change, "leaf")) {
    const std::string name = ChildText(leaf, "name");
    if (FindChild(leaf, "old-value") != nullptr)
      text += PrintLeaf('-', name, ChildText(leaf, "old-value"));
    if (FindChild(leaf, "value") != nullptr) text += PrintLeaf('+', name, ChildText(leaf, "value"));
  }
  return text;
}

}  // namespace

std::string PrintDifference(const lyd_node* parent) {
  std::string text;
  for (const lyd_node* change : Children(parent, "change")) text += PrintChange(change);
  return text;
}

}  // namespace aclctl
