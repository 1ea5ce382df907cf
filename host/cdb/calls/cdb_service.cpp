// Sessions of the cdb_* calls.
#include "host/cdb/calls/cdb_service.h"

#include <algorithm>

#include "host/cdb/operational_store.h"

namespace host {
namespace {

// Handles start here, so that no descriptor number of the process is taken for one by mistake.
constexpr int kFirstHandle = 1 << 20;

CdbService* instance = nullptr;

std::string& LastError() {
  static std::string text;
  return text;
}

}  // namespace

void SetCdbError(const std::string& text) { LastError() = text; }
const std::string& CdbError() { return LastError(); }

// Makes `path` absolute, and says who resolves it.
PathResolver* CdbSession::ResolverOf(std::string_view* path) {
  if (!path->empty() && path->front() == '/') return absolute_;
  joined_.assign(Position()).append("/").append(*path);
  *path = joined_;
  return &relative_;
}

const PathSteps* CdbSession::Resolve(std::string_view path, const PathTree& tree) {
  std::string error;
  const PathSteps* steps = ResolverOf(&path)->Resolve(path, tree, &error);
  if (steps == nullptr) SetCdbError(error);
  return steps;
}

const PathSteps* CdbSession::Read(std::string_view path, const PathTree& tree) {
  std::string error;
  const PathSteps* steps = ResolverOf(&path)->Read(path, tree, &error);
  if (steps == nullptr) SetCdbError(error);
  return steps;
}

const std::string& CdbSession::Position() {
  if (position_.empty()) position_ = PrintSteps(position_steps_);
  return position_;
}

const PathSteps* CdbSession::PositionSteps(const PathTree& tree) {
  if (position_generation_ == tree.generation) return &position_steps_;
  return Read("", tree);
}

bool CdbSession::MoveTo(std::string_view path, const PathTree& tree) {
  const bool same_tree = position_generation_ == tree.generation;
  if (path == ".." && same_tree) {
    if (!position_steps_.empty()) position_steps_.pop_back();
  } else {
    const PathSteps* steps = Read(path, tree);
    if (steps == nullptr) return false;
    TakePosition(*steps, same_tree);
    position_generation_ = tree.generation;
  }
  position_.clear();
  return true;
}

// An entry that was named by its position is kept by its keys: those stay, whatever is committed.
// Only what differs from the last position is taken.
void CdbSession::TakePosition(const PathSteps& steps, bool same_tree) {
  const auto is_same = [](const PathStep& kept, const PathStep& step) {
    if (kept.node != step.node || kept.is_entry != step.is_entry) return false;
    return !step.is_entry || (step.keys.empty() ? kept.data == step.data : kept.keys == step.keys);
  };
  size_t same = 0;
  const size_t most = same_tree ? std::min(steps.size(), position_steps_.size()) : 0;
  while (same < most && is_same(position_steps_[same], steps[same])) ++same;
  position_steps_.resize(same);
  for (; same < steps.size(); ++same) {
    position_steps_.push_back(steps[same]);
    PathStep& step = position_steps_.back();
    const lyd_node* key = step.is_entry && step.keys.empty() ? lyd_child(step.data) : nullptr;
    for (; key != nullptr && step.keys.size() < step.node->key_count; key = key->next)
      step.keys.emplace_back(TextOf(key));
  }
}

CdbService::CdbService(Datastore* datastore)
    : datastore_(datastore),
      schema_(datastore->Context()),
      running_paths_(&schema_),
      operational_paths_(&schema_) {
  instance = this;
}

CdbService::~CdbService() {
  if (instance == this) instance = nullptr;
}

CdbService* CdbService::Instance() { return instance; }

int CdbService::OpenSession(cdb_db_type db) {
  if (db != CDB_RUNNING && db != CDB_OPERATIONAL) return -1;
  size_t slot = 0;
  while (slot < sessions_.size() && sessions_[slot] != nullptr) ++slot;
  if (slot == sessions_.size()) sessions_.emplace_back();
  sessions_[slot] = std::make_unique<CdbSession>(
      &schema_, db, db == CDB_RUNNING ? &running_paths_ : &operational_paths_);
  return kFirstHandle + static_cast<int>(slot);
}

void CdbService::CloseSession(int handle) {
  if (Session(handle) != nullptr) sessions_[static_cast<size_t>(handle - kFirstHandle)].reset();
}

CdbSession* CdbService::Session(int handle) {
  const int slot = handle - kFirstHandle;
  if (slot < 0 || slot >= static_cast<int>(sessions_.size())) return nullptr;
  return sessions_[static_cast<size_t>(slot)].get();
}

PathTree CdbService::TreeOf(const CdbSession& session) {
  if (session.db() == CDB_RUNNING) {
    const uint64_t id = datastore_->TransactionId();
    return Tree(datastore_->Running(), id, id, &running_index_);
  }
  const WrittenState& written = datastore_->Operational().written();
  PathTree tree = Tree(written.Kept(), written.generation(), written.losses(), &operational_index_);
  tree.written = &written;
  return tree;
}

PathTree CdbService::Tree(const lyd_node* first, uint64_t generation, uint64_t losses,
                          IndexOfTree* index) {
  if (index->generation != generation) {
    index->generation = generation;
    index->index.Clear();
  }
  return {first, generation, losses, &index->index, nullptr};
}

}  // namespace host
