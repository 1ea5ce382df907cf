// Which changes of interfaces are told, and how many.
#include "host/filter_mgr/interface_watch.h"

#include <gtest/gtest.h>

namespace host {
namespace {

class PortsOnly : public Backend {
 public:
  const char* name() const override { return "bpf"; }
  FilterMgrError Prepare(const SentGroup&) override { return FILTER_MGR_OK; }
  Standing Publish() override { return {}; }
  void Discard() override {}
  const Standing& standing() const override { return standing_; }
  std::unique_ptr<HitsReading> ReadHits(GroupSlot) override { return nullptr; }
  std::map<std::string, PortState> Ports() const override { return ports; }
  std::map<std::string, PortState> ports;

 private:
  Standing standing_;
};

TEST(InterfaceWatchTest, TellsWhatIsOtherThanBefore) {
  PortsOnly backend;
  std::map<std::string, LinkState> links = {{"a", LinkState::kUp}, {"b", LinkState::kUp}};
  const auto loop = EventLoop::Create();
  Events events;
  std::string told;
  events.Listen(&events, [&told](const Event& event) {
    const auto& change = std::get<InterfaceChanged>(event);
    told += change.name + " " + change.link + " " + change.filters +
            (change.others != 0 ? " +" + std::to_string(change.others) : "") + ", ";
  });
  InterfaceWatch watch(
      backend, [&links] { return [&links](const std::string& name) { return links[name]; }; },
      *loop, events);
  const auto look = [&](std::map<std::string, PortState> ports) {
    backend.ports = std::move(ports);
    told.clear();
    watch.Look();
    return told;
  };
  const PortState in_force = PortState::kEnforced;
  EXPECT_EQ("", look({{"a", in_force}})) << "what is there at the start is no change";
  EXPECT_EQ("c absent waiting, ", look({{"a", in_force}, {"c", PortState::kAbsent}}));
  links["a"] = LinkState::kDown;
  EXPECT_EQ("a down failed, b up in-force, c absent not-enforced, ",
            look({{"a", PortState::kFailed}, {"b", in_force}}));
  EXPECT_EQ("", look({{"a", PortState::kFailed}, {"b", in_force}}));
  EXPECT_EQ("a down not-enforced, b up not-enforced, ", look({}));
  EXPECT_EQ("", look({}));
  std::map<std::string, PortState> many;
  for (int i = 100; i < 167; ++i) many["p" + std::to_string(i)] = in_force;
  EXPECT_EQ("p163 absent in-force +3, ",
            look(many).substr(63 * std::string("p100 absent in-force, ").size()));
}

}  // namespace
}  // namespace host
