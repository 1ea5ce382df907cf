// The notifications of the past, for those who ask for a replay (RFC 5277 section 3.3).
//
// What is kept is bounded, by its size. There are three shelves, so that what comes often pushes
// nothing else out: whoever can connect can fill the log with beginnings and ends of sessions, and
// a port that flaps, or a program that fights the daemon for the filters, with what becomes of
// them. A shelf is two generations of notifications, a file each; when the younger one is full, the
// older one goes and the younger one takes its place. So a shelf holds one to two times its size.
//
// What is in the files is in memory as well; they are there for the next process. A notification is
// written before anybody is told of it, and before the operation that brought it about is answered,
// so what has an answer is in the replay however the process ends. The files are never synced: a
// failure of the machine may cost what was written in the seconds before. The commits themselves,
// which do outlive that, are in the history of the datastore. A line of a file is a checksum of the
// rest, the time and the content; lines that do not fit theirs are passed over. A disk that does
// not take them is logged, and costs the next process's memory of them, nothing else.
#ifndef HOST_NETCONF_NOTIFICATIONS_NOTIFICATION_LOG_H_
#define HOST_NETCONF_NOTIFICATIONS_NOTIFICATION_LOG_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "host/netconf/notifications/notification.h"

namespace host {

class NotificationLog {
 public:
  enum Shelf { kSessions, kPorts, kCommits, kShelves };
  // Octets of a generation, by shelf.
  struct Sizes {
    std::array<size_t, kShelves> bytes = {size_t{256} << 10, size_t{256} << 10, size_t{1} << 20};
  };

  // Reads what an earlier process has left in `directory`; empty: nothing is kept on disk. `now_us`
  // is when the log counts as created if there is none.
  NotificationLog(std::string directory, Sizes sizes, int64_t now_us);
  NotificationLog(const NotificationLog&) = delete;
  NotificationLog& operator=(const NotificationLog&) = delete;

  // Keeps it, and writes it into the shelf's file.
  void Add(Shelf shelf, NotificationPtr notification);

  // Those from `from_us` to `until_us`, both included, in the order in which they happened.
  std::vector<NotificationPtr> Between(int64_t from_us, int64_t until_us) const;
  // When the log was begun, and when the last notification happened that it has no more; 0: it has
  // all since it was begun.
  int64_t created_us() const { return created_us_; }
  int64_t aged_us() const { return aged_us_; }

 private:
  struct Generations {
    std::string path;  // of the younger one's file; empty: none
    size_t limit = 0;  // octets
    std::deque<NotificationPtr> older, younger;
    size_t younger_bytes = 0;
    bool begun = false;   // the younger one's file has its first line, as far as is known
    bool failed = false;  // the disk did not take the last line
  };

  std::string OlderPath(const Generations& shelf) const { return shelf.path + ".old"; }
  bool Read(const std::string& path, std::deque<NotificationPtr>* into, size_t* bytes);
  void Write(Generations* shelf, std::string line);
  void Turn(Generations* shelf);

  std::array<Generations, kShelves> shelves_;
  int64_t created_us_;
  int64_t aged_us_ = 0;
};

}  // namespace host

#endif  // HOST_NETCONF_NOTIFICATIONS_NOTIFICATION_LOG_H_
