// What stands behind the middleware handle, for the other parts of the platform.
//
// The handle may be finished before the parts that use it are destroyed: they keep shared ownership
// of what they need (loop, state providers), never the handle itself.
#ifndef HOST_RUNTIME_MIDDLEWARE_H_
#define HOST_RUNTIME_MIDDLEWARE_H_

#include <memory>
#include <string>

#include "host/runtime/entry_origins.h"
#include "host/runtime/event_loop.h"
#include "host/runtime/events.h"
#include "host/runtime/log.h"
#include "host/runtime/state_providers.h"
#include "host/runtime/status_board.h"
#include "host/runtime/submissions.h"
#include "platform/qzmw/qzmw.h"

namespace host {

// Each keeps the lock on the state directory, too, which so lasts until its last user is gone.
std::shared_ptr<EventLoop> LoopOf(qzmw_t* mw);
std::shared_ptr<StateProviders> StateProvidersOf(qzmw_t* mw);
std::shared_ptr<Submissions> SubmissionsOf(qzmw_t* mw);
std::shared_ptr<StatusBoard> StatusBoardOf(qzmw_t* mw);
std::shared_ptr<EntryOriginSource> OriginsOf(qzmw_t* mw);
std::shared_ptr<Events> EventsOf(qzmw_t* mw);

// Ends a start that the operator's settings or files keep from succeeding, with status 1: logs the
// reason, which names the setting or the file, and nothing else, for there is nothing to debug.
[[noreturn]] void FailStart(const std::string& reason);
// Reports a fatal fault of the platform and ends the process with status 1. For failures of the
// start that the caller has no way to report, and that are not the operator's.
[[noreturn]] void FatalFault(const char* function, const char* file, int line, const char* format,
                             ...) __attribute__((format(printf, 4, 5)));

// Tells the service manager that the process is up (sd_notify(3) READY=1).
void NotifyReady();
// Tells the service manager, in a line, how the process is (STATUS=), for its users.
void NotifyStatus(const std::string& status);

}  // namespace host

#endif  // HOST_RUNTIME_MIDDLEWARE_H_
