// Feeding the service manager's watchdog from within long work.
//
// The loop feeds it between callbacks. A bulk edit is one callback that can take longer than the
// watchdog's time; its long phases call FeedWatchdog() for each entry they have done, so that the
// watchdog still sees a process that hangs, but not one that works.
#ifndef HOST_RUNTIME_WATCHDOG_H_
#define HOST_RUNTIME_WATCHDOG_H_

namespace host {

// Tells the service manager, when it watches (sd_watchdog_enabled(3)) and has not been told for a
// second, that the process works. Cheap enough to be called for everything that is done.
void FeedWatchdog();

}  // namespace host

#endif  // HOST_RUNTIME_WATCHDOG_H_
