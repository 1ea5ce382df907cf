// Changes of interfaces and bindings that a commit makes.
#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

class InterfaceChangesTest : public ManagerTest {
 protected:
  InterfaceChangesTest() {
    filter_->CreateInterface("eth0");
    filter_->AddAclIntoInterface("eth0", "P");
    platform_.Take();
  }
};

TEST_F(InterfaceChangesTest, EveryChange) {
  RunChanges("/config/access-list/", R"(
      created interface{gi 1/1/%s}
        log HandleInterface - creating interface gi 1/1/%s ; model CreateInterface gi 1/1/%s
        refused: HandleInterface - error creating interface gi 1/1/%s
      created interface{eth0}
        log HandleInterface - creating interface eth0 ; model CreateInterface eth0
        refused: HandleInterface - error creating interface eth0
      deleted interface{unknown}
        log HandleInterface - removing interface unknown ; model RemoveInterface unknown
      modified interface{eth0} ; log HandleInterface - nothing to do (operation 3)
      set interface{eth0} ; log HandleInterface - nothing to do (operation 4)
      created interface{eth0}/ingress{Q %d}
        model AddAclIntoInterface eth0 Q %d
        refused: HandleInterfaceAcl - error adding ACL Q %d into interface eth0
        log HandleInterfaceAcl - adding ACL Q %d into interface eth0
      deleted interface{eth0}/ingress{P}
        model RemoveAclFromInterface eth0 P
        refused: HandleInterfaceAcl - error removing ACL P from interface eth0
        log HandleInterfaceAcl - removing ACL P from interface eth0
        log HandleInterfaceAcl - nothing to do (operation 2)
      set interface{eth0}/ingress{P} ; log HandleInterfaceAcl - nothing to do (operation 4)
      set interface{eth0}/unknown ; log AclInterfacesDiffIt - nothing to do (xmltag 74565)
      modified access-list ; log AclInterfacesDiffIt - nothing to do (xmltag 1900334689))");
  EXPECT_EQ(Dump(*filter_), Lines({"eth0 binds Q %d", "gi 1/1/%s binds"}));
}

TEST_F(InterfaceChangesTest, ShortKeypathsDifferByHandler) {
  EXPECT_EQ(Change("created /config/access-list/interface"), ITER_RECURSE);
  EXPECT_EQ(TakeChange(), Text("log HandleInterface - error parsing interface name"));
  EXPECT_EQ(Change("created /config/access-list/ingress"), ITER_CONTINUE);
  EXPECT_EQ(TakeChange(), Text("log HandleInterfaceAcl - error parsing interface name"));
}

TEST_F(InterfaceChangesTest, KeysMustBeBuffers) {
  KeyPath path("/config/access-list/interface{eth0}/ingress{P}");
  path.v[0][0].type = C_INT32;
  EXPECT_DEATH(manager_.HandleInterfaceAcl(&path, MOP_CREATED, nullptr),
               "Assertion `\\(&kp->v\\[0\\]\\[0\\]\\)->type == C_BUF' failed");
  path.FromTop(4)->type = C_INT32;
  EXPECT_DEATH(manager_.HandleInterface(&path, MOP_CREATED),
               "Assertion `\\(&kp->v\\[depth\\]\\[0\\]\\)->type == C_BUF' failed");
}

}  // namespace
}  // namespace acl_test
