// Changes of interfaces and bindings that a commit makes.
#include "tests/support/change_test.h"

namespace acl_test {
namespace {

using testing::ElementsAre;

class InterfaceChangesTest : public ChangeTest {
 protected:
  InterfaceChangesTest() : ChangeTest(1, "/config/access-list/") {
    filter_->CreateInterface("eth0");
    filter_->AddAclIntoInterface("eth0", "P");
    platform_.Take();
  }
};

TEST_F(InterfaceChangesTest, EveryChange) {
  Run({
      {"interface{eth1}",
       MOP_CREATED,
       {},
       {"log HandleInterface - creating interface eth1", "model CreateInterface eth1"},
       {"log HandleInterface - error creating interface eth1"}},
      {"interface{gi 1/1/%s}",
       MOP_CREATED,
       {},
       {"log HandleInterface - creating interface gi 1/1/%s", "model CreateInterface gi 1/1/%s"},
       {"log HandleInterface - error creating interface gi 1/1/%s"}},
      {"interface{eth0}",
       MOP_CREATED,
       {},  // there already
       {"log HandleInterface - creating interface eth0", "model CreateInterface eth0"},
       {"log HandleInterface - error creating interface eth0"}},
      {"interface{unknown}",
       MOP_DELETED,
       {},
       {"log HandleInterface - removing interface unknown", "model RemoveInterface unknown"},
       {""}},
      {"interface{eth0}", MOP_MODIFIED, {}, {"log HandleInterface - nothing to do (operation 3)"}},
      {"interface{eth0}", MOP_VALUE_SET, {}, {"log HandleInterface - nothing to do (operation 4)"}},
      {"interface{eth0}/ingress{Q %d}",
       MOP_CREATED,
       {},
       {"model AddAclIntoInterface eth0 Q %d",
        "log HandleInterfaceAcl - adding ACL Q %d into interface eth0"},
       {"log HandleInterfaceAcl - error adding ACL Q %d into interface eth0"}},
      {"interface{eth0}/ingress{P}",
       MOP_DELETED,
       {},
       {"model RemoveAclFromInterface eth0 P",
        "log HandleInterfaceAcl - removing ACL P from interface eth0",
        "log HandleInterfaceAcl - nothing to do (operation 2)"},
       {"log HandleInterfaceAcl - error removing ACL P from interface eth0"}},
      {"interface{eth0}/ingress{P}",
       MOP_VALUE_SET,
       {},
       {"log HandleInterfaceAcl - nothing to do (operation 4)"}},
      {"interface{eth0}/interface-name",
       MOP_VALUE_SET,
       Buf("eth0"),
       {"log AclInterfacesDiffIt - nothing to do (xmltag " + TagNumber("interface-name") + ")"}},
      {"acl-profile",
       MOP_MODIFIED,
       {},
       {"log AclInterfacesDiffIt - nothing to do (xmltag " + TagNumber("acl-profile") + ")"}},
  });
}

TEST_F(InterfaceChangesTest, BindingToAnUnknownInterfaceIsRefused) {
  EXPECT_EQ(Change("interface{eth9}/ingress{P}", MOP_CREATED), ITER_CONTINUE);
  EXPECT_THAT(TakeChange(), ElementsAre("model AddAclIntoInterface eth9 P",
                                        "log HandleInterfaceAcl - error adding ACL P into "
                                        "interface eth9"));
  EXPECT_EQ(Change("interface{eth9}/ingress{P}", MOP_DELETED), ITER_CONTINUE);
  EXPECT_THAT(TakeChange(), ElementsAre("model RemoveAclFromInterface eth9 P",
                                        "log HandleInterfaceAcl - error removing ACL P from "
                                        "interface eth9"));
}

TEST_F(InterfaceChangesTest, ShortKeypathsDifferByHandler) {
  KeyPath interface("/config/access-list/interface");
  EXPECT_EQ(manager_.AclInterfacesDiffIt(&interface, MOP_CREATED, nullptr, nullptr), ITER_RECURSE);
  EXPECT_THAT(TakeChange(), ElementsAre("log HandleInterface - error parsing interface name"));
  KeyPath ingress("/config/access-list/ingress");
  EXPECT_EQ(manager_.AclInterfacesDiffIt(&ingress, MOP_CREATED, nullptr, nullptr), ITER_CONTINUE);
  EXPECT_THAT(TakeChange(), ElementsAre("log HandleInterfaceAcl - error parsing interface name"));
}

TEST_F(InterfaceChangesTest, KeysMustBeBuffers) {
  KeyPath path("/config/access-list/interface{eth0}/ingress{P}");
  path.v[0][0].type = C_INT32;
  EXPECT_DEATH(manager_.HandleInterfaceAcl(&path, MOP_CREATED, nullptr),
               "Assertion `\\(&kp->v\\[0\\]\\[0\\]\\)->type == C_BUF' failed");
  path.v[path.len - 4][0].type = C_INT32;
  EXPECT_DEATH(manager_.HandleInterface(&path, MOP_CREATED),
               "Assertion `\\(&kp->v\\[depth\\]\\[0\\]\\)->type == C_BUF' failed");
}

}  // namespace
}  // namespace acl_test
