// A fixture for tables of the changes of a commit.
#ifndef TESTS_SUPPORT_CHANGE_TEST_H_
#define TESTS_SUPPORT_CHANGE_TEST_H_

#include <string>
#include <vector>

#include "tests/support/core_fixtures.h"

namespace acl_test {

class ChangeTest : public ManagerTest {
 protected:
  // One changed node, and what it makes the manager log and ask of the model when all goes well.
  struct Row {
    std::string path;  // below the root of the table
    int operation;
    Value new_value;  // without a value: none is given
    Lines effects;
    // For each "model" line of the effects: what is logged when the model refuses it; "" is
    // nothing.
    Lines on_refusal = {};
  };

  // `point` is the subscription point that the changes come through.
  ChangeTest(int point, const std::string& root)
      : point_(manager_.GetSubscriptionPoints()[point]), root_(root) {}

  confd_iter_ret Change(const std::string& path, int operation, Value new_value = {});
  // What the last change made the manager log and ask of the model, without the line of its path,
  // which is checked here.
  Lines TakeChange();
  // Expects each row's effects and ITER_RECURSE; then, for each thing asked of the model, that its
  // refusal ends the change with ITER_CONTINUE.
  void Run(const std::vector<Row>& rows);

  static std::string TagNumber(const std::string& node_name) {
    return std::to_string(Tag(node_name).get()->val.xmltag.tag);
  }

 private:
  void RunRefusal(const Row& row, size_t line, const std::string& logged);

  const qzconfd::SubscriptionPoint point_;
  const std::string root_;
};

}  // namespace acl_test

#endif  // TESTS_SUPPORT_CHANGE_TEST_H_
