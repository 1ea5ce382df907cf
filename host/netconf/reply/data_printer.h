// Prints views of trees as XML, part by part.
#ifndef HOST_NETCONF_REPLY_DATA_PRINTER_H_
#define HOST_NETCONF_REPLY_DATA_PRINTER_H_

#include <libyang/libyang.h>

#include <string>
#include <vector>

#include "host/netconf/reply/tree_view.h"

namespace host {

class DataPrinter {
 public:
  // `options`: LYD_PRINT_WD_* of libyang.
  explicit DataPrinter(uint32_t options) : options_(options) {}

  // Says that the views from here on are of one tree that comes in pieces. What a piece has in
  // common with the one before is not printed again.
  void SetPieces(bool pieces) { pieces_ = pieces; }

  // Appends the part to `*xml`. False when that is impossible: its page is lost, or libyang
  // refuses.
  bool Print(const ViewPart& part, std::string* xml);
  // Appends what is still owed. To be called after the last part.
  void Finish(std::string* xml) { EndElements(0, xml); }

 private:
  // An element between its start and its end.
  struct Element {
    const lysc_node* schema = nullptr;
    std::string keys;
    bool printed = false;    // its start is
    bool continued = false;  // begun by an earlier piece
    std::string tail = {};   // what comes before its end
  };

  void Start(const ViewPart& part, std::string* xml);
  void End(std::string* xml);
  bool PrintNode(const lyd_node* node, const SubtreeFilter::NodeRefs* filter, std::string* xml);
  void PrintStarts(std::string* xml);
  void EndElements(size_t depth, std::string* xml);

  const uint32_t options_;
  bool pieces_ = false;
  std::vector<Element> elements_;  // the open ones, and behind them those that may be continued
  size_t depth_ = 0;               // number of the open ones
};

}  // namespace host

#endif  // HOST_NETCONF_REPLY_DATA_PRINTER_H_
