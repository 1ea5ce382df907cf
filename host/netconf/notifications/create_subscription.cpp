// <create-subscription> (RFC 5277 section 2.1.1).
#include <libyang/libyang.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "host/netconf/notifications/notifier.h"
#include "host/netconf/operations/operations.h"
#include "host/runtime/date_and_time.h"
#include "host/xml/generic_xml.h"

namespace host {
namespace {

OperationResult Refuse(RpcError error) { return OperationResult::Error(std::move(error)); }

// The moment that the parameter `name` is, in microseconds since 1970; none when it is absent.
std::optional<int64_t> MomentOf(const OperationCall& call, const char* name) {
  const lyd_node* parameter = FindParameter(call, name);
  if (parameter == nullptr) return std::nullopt;
  time_t seconds = 0;
  char* fraction = nullptr;
  if (ly_time_str2time(lyd_get_value(parameter), &seconds, &fraction) != LY_SUCCESS) return 0;
  std::string microseconds = fraction != nullptr ? fraction : "";
  free(fraction);
  microseconds.resize(6, '0');
  return int64_t{seconds} * 1000000 + std::atoll(microseconds.c_str());
}

const lyd_node* GenericFilter(const OperationCall& call) {
  const lyd_node* child = lyd_child(call.message.GenericOperation());
  while (child != nullptr && XmlName(child) != "filter") child = child->next;
  return child;
}

}  // namespace

OperationResult RunCreateSubscription(const OperationContext& context, const OperationCall& call) {
  if (context.notifier == nullptr) {
    return Refuse(OperationNotSupported("there are no notifications here"));
  }
  if (call.session.subscribed) {
    return Refuse({"protocol", "in-use",
                   "this session has a subscription already, which ends with it or at its stopTime",
                   "", "", ""});
  }
  const std::string stream = ParameterText(call, "stream", kStream);
  if (stream != kStream) {
    return Refuse({"protocol", "invalid-value",
                   "there is no stream \"" + stream + "\", only " + kStream, "", "", ""});
  }
  const std::optional<int64_t> start = MomentOf(call, "startTime");
  const std::optional<int64_t> stop = MomentOf(call, "stopTime");
  const int64_t now = NowMicroseconds();
  if (stop && !start) return Refuse(MissingElement("startTime"));
  if (start > now) return Refuse(BadElement("startTime", "startTime is in the future"));
  if (stop && *stop < *start) {
    return Refuse(BadElement("stopTime", "stopTime is earlier than startTime"));
  }
  OperationResult result;
  const lyd_node* typed = FindParameter(call, "filter");
  std::optional<CompiledFilter> filter =
      CompileFilter(typed == nullptr ? nullptr : GenericFilter(call), typed,
                    context.datastore.Context(), call.session.may_write, &result.errors);
  if (!filter.has_value()) return result;
  Subscription::Request request{std::move(*filter), std::nullopt,
                                stop.value_or(Subscription::kNever)};
  // Whatever was told before this is in the log, and nothing else is, whatever the clock says.
  if (start) request.replay = context.notifier->log().Between(*start, request.stop_us);
  result.subscription = context.notifier->Subscribe(std::move(request));
  return result;
}

}  // namespace host
