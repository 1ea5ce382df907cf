#include "app/log_dictionary.h"

namespace acl_app {
namespace {

// Every table ends with a row of zeros.
constexpr ElemLogRow kEndOfTable = {nullptr, nullptr, 0, 0};

// Name, short name, class identifier. Identifiers below 100 are those of applications, those from
// 0x8001 upwards belong to the middleware's services.
ElemLogRow classes[] = {
    {"ACL", "ACL", 32, 0},
    kEndOfTable,
};

// Name, short name, component identifier.
const ElemLogRow kComponents[] = {
    {"ACL_APP", "ACL_APP", 55, 0},
    kEndOfTable,
};

// Name, short name, bit.
const ElemLogRow kSeverities[] = {
    {"Alert", "Alert", 64, 0},      {"Critical", "Crit", 32, 0}, {"Debug", "Debug", 1, 0},
    {"Emergency", "Emerg", 128, 0}, {"Error", "Error", 16, 0},   {"Informational", "Info", 2, 0},
    {"Notice", "Notice", 4, 0},     {"Warning", "Warn", 8, 0},   kEndOfTable,
};

const ElemLogField kFields[] = {
    {0, "class", "component", "Component", "Component", {0, 0, 0, 1, 0, 1, 0, 0, 0, 0}},
    {1, "subclass", "messageID", "MessageID", "MSG_ID", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {2, "type", "type", "Type", "Type", {0, 1, 0, 0, 0, 0, 0, 0, 0, 0}},
    {3, "eid", "facility", "Facility", "Facility", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {4, "severity", "severity", "Severity", "Sev", {32, 0, 1, 0, 1, 1, 1, 0, 0, 0}},
    {},
};

const ElemLogOutput kOutputs[] = {
    {"userLog", "UserLog", {2, -1, 50, 1, 10, 1}},
    {"devLog", "DeveloperLog", {2, -1, 50, 1, 10, 1}},
    {"remoteUserLog", "RemoteUserLog", {4, -1, 0, 0, 0, 1}},
    {},
};

int library_word = 0;

}  // namespace

const ElemLogHeader kLogHeader = {{3, 7, 3, 100, 1}, kOutputs, kFields};

const ElemLogTables kLogTables = {classes, &library_word, nullptr, kComponents, kSeverities};

const ElemWebCategory kWebCategories[] = {
    {"Application Commands", "user", {0, 0, 0}},
    {"Element Commands", "element", {0, 1, 1}},
    {"Element Internal Commands", "debug", {2, 2, 1}},
    {},
};

}  // namespace acl_app
