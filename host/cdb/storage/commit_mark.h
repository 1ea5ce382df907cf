// The mark beside the database: which database it is, and the last commit that it must have.
//
// It is written, durably, after each commit and before the commit is acknowledged. So a database
// that is behind its mark has lost commits that were acknowledged; one that is ahead of it is
// complete, for a process may end between the two writes.
//
// The file has two slots of a sector each, with a checksum, that are written in turn: a write that
// fails half way leaves the other. Either one may be lost: the one before is behind by one commit,
// as after a crash.
//
// Slot (numbers in the machine's byte order): magic (8 octets), database (16), commit (8), digest
// of the octets before (8).
#ifndef HOST_CDB_STORAGE_COMMIT_MARK_H_
#define HOST_CDB_STORAGE_COMMIT_MARK_H_

#include <cstdint>
#include <optional>
#include <string>

namespace host {

class CommitMark {
 public:
  struct Content {
    std::string database;  // 16 octets
    uint64_t commit = 0;
  };

  explicit CommitMark(std::string path) : path_(std::move(path)) {}
  CommitMark(const CommitMark&) = delete;
  CommitMark& operator=(const CommitMark&) = delete;
  ~CommitMark();

  // What the file holds: nothing when there is no file, or when no slot is sound (`*damaged`).
  // False, with a reason in `why`, when it cannot be read.
  bool Read(std::optional<Content>* content, bool* damaged, std::string* why);
  // Replaces the file whole. False on failure, with the reason in `why`; the old file is then left.
  bool Create(const Content& content, std::string* why);
  // Notes a further commit of the same database, in a file that was read or created. As above.
  bool Advance(uint64_t commit, std::string* why);

  const std::string& path() const { return path_; }

 private:
  bool Open(std::string* why);

  const std::string path_;
  int fd_ = -1;
  std::string database_;
  int next_slot_ = 0;
};

}  // namespace host

#endif  // HOST_CDB_STORAGE_COMMIT_MARK_H_
