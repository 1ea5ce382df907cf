#include "bench/configuration.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>

namespace {

void Require(acl_app::aclErr_t rc) {
  if (rc == acl_app::ACL_OK) return;
  std::fprintf(stderr, "the model refused the benchmark's configuration (%d)\n", rc);
  std::abort();
}

void AddEntry(acl_app::AclCache* cache, const std::string& profile, int prio,
              const EntryValues& values) {
  confd_value_t source = {};
  source.type = C_IPV4;
  source.val.ip = values.source;
  confd_value_t protocol = {};
  protocol.type = C_UINT8;
  protocol.val.u8 = values.protocol;
  confd_value_t port = {};
  port.type = C_UINT16;
  port.val.u16 = values.port;
  Require(cache->CreateEntry(profile, prio));
  Require(cache->CreateMatch(profile, prio, acl_app::ACL_MATCH_SRC_IPV4, &source, nullptr));
  Require(cache->CreateMatch(profile, prio, acl_app::ACL_MATCH_IP_PROTOCOL, &protocol, nullptr));
  Require(cache->CreateMatch(profile, prio, acl_app::ACL_MATCH_DST_PORT, &port, nullptr));
  Require(cache->CreateAction(profile, prio, FiltersCommon::FILTERS_ACTION_DENY, nullptr));
}

}  // namespace

EntryValues ValuesOf(int profile, int entry) {
  const uint32_t host =
      0x0a000000u + (static_cast<uint32_t>(profile) << 16) + static_cast<uint32_t>(entry);
  return {{htonl(host)},
          static_cast<uint8_t>(entry % 2 == 0 ? 6 : 17),
          static_cast<uint16_t>(1 + entry % 60000)};
}

std::string ProfileName(int profile) { return "profile-" + std::to_string(profile); }
std::string InterfaceName(int interface) { return "port-" + std::to_string(interface); }

void FillProfiles(acl_app::AclCache* cache, int profiles, int entries) {
  for (int p = 0; p < profiles; ++p) {
    const std::string name = ProfileName(p);
    Require(cache->CreateAclProfile(acl_app::kAclTypeL3, name));
    Require(cache->SetAclPrio(name, p));
    for (int e = 0; e < entries / profiles; ++e) AddEntry(cache, name, e, ValuesOf(p, e));
  }
}

void BindProfiles(acl_app::AclCache* cache, int profiles) {
  for (int p = 0; p < profiles; ++p) {
    Require(cache->CreateInterface(InterfaceName(p)));
    Require(cache->AddAclIntoInterface(InterfaceName(p), ProfileName(p)));
  }
}

std::string ConfigurationJson(int profiles, int entries) {
  std::string json =
      R"({"acl-app:config":{"access-list":{"acl-profile":{"ingress":{"access-list":[)";
  for (int p = 0; p < profiles; ++p) {
    json += p == 0 ? "" : ",";
    json += R"({"acl-type":"l3","acl-name":")" + ProfileName(p) +
            R"(","acl-priority-l3":{"priority":)" + std::to_string(p) +
            R"(},"access-list-entry":[)";
    for (int e = 0; e < entries / profiles; ++e) {
      const EntryValues values = ValuesOf(p, e);
      char source[INET_ADDRSTRLEN];
      inet_ntop(AF_INET, &values.source, source, sizeof(source));
      json += e == 0 ? "" : ",";
      json += R"({"ace-priority":)" + std::to_string(e) +
              R"(,"match":{"source-ipv4-address":{"no-mask":{"ip":")" + source +
              R"("}},"ip-protocol":)" + std::to_string(values.protocol) +
              R"(,"destination-port":)" + std::to_string(values.port) +
              R"(},"action":{"packet-handling":{"deny":[null]}}})";
    }
    json += "]}";
  }
  json += R"(]}},"interface":[)";
  for (int p = 0; p < profiles; ++p) {
    json += p == 0 ? "" : ",";
    json += R"({"interface-name":")" + InterfaceName(p) + R"(","ingress":[")" + ProfileName(p) +
            R"("]})";
  }
  return json + "]}}}";
}

std::string ConfigurationXml(int profiles, int entries) {
  std::string xml = R"(<config xmlns="urn:acl-app:acl"><access-list><acl-profile><ingress>)";
  std::string bindings;
  for (int p = 0; p < profiles; ++p) {
    xml += "<access-list><acl-type>l3</acl-type><acl-name>" + ProfileName(p) +
           "</acl-name><acl-priority-l3><priority>" + std::to_string(p) +
           "</priority></acl-priority-l3>";
    for (int e = 0; e < entries / profiles; ++e) {
      const EntryValues values = ValuesOf(p, e);
      char source[INET_ADDRSTRLEN];
      inet_ntop(AF_INET, &values.source, source, sizeof(source));
      xml += "<access-list-entry><ace-priority>" + std::to_string(e) +
             "</ace-priority><match><source-ipv4-address><no-mask><ip>" + source +
             "</ip></no-mask></source-ipv4-address><ip-protocol>" +
             std::to_string(values.protocol) + "</ip-protocol><destination-port>" +
             std::to_string(values.port) +
             "</destination-port></match><action><packet-handling><deny/></packet-handling>"
             "</action></access-list-entry>";
    }
    xml += "</access-list>";
    bindings += "<interface><interface-name>" + InterfaceName(p) + "</interface-name><ingress>" +
                ProfileName(p) + "</ingress></interface>";
  }
  return xml + "</ingress></acl-profile>" + bindings + "</access-list></config>";
}

std::string OneEntryJson(int profile, int entry, int port) {
  return R"({"acl-app:config":{"access-list":{"acl-profile":{"ingress":{"access-list":[)"
         R"({"acl-type":"l3","acl-name":")" +
         ProfileName(profile) + R"(","access-list-entry":[{"ace-priority":)" +
         std::to_string(entry) + R"(,"match":{"destination-port":)" + std::to_string(port) +
         "}}]}]}}}}}";
}
