// State that parts of the process can show as operational data, beside what is written into the
// operational datastore: each part registers a function that builds its data when somebody asks.
// Likewise a part can answer an operation of the schema that only looks at things.
#ifndef HOST_RUNTIME_STATE_PROVIDERS_H_
#define HOST_RUNTIME_STATE_PROVIDERS_H_

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "host/runtime/hits.h"

struct ly_ctx;
struct lyd_node;

namespace host {

class StateProviders {
 public:
  // Builds the data tree below one top-level node; the caller frees it with lyd_free_all(). Null
  // when there is nothing to show.
  using Provider = std::function<lyd_node*(const ly_ctx* context)>;

  // The same in pieces, for data that take long to build. Each is a tree from the top-level node
  // on, with some entries of a list; it repeats what is around them (keys, and all else that is no
  // list). Entries of one parent come one after the other. The caller frees the pieces.
  class Pieces {
   public:
    virtual ~Pieces() = default;
    // The next piece, in some milliseconds at most; null when there is none left.
    virtual lyd_node* Next(const ly_ctx* context) = 0;
    // Whether there are no more pieces for another reason than that all were given.
    virtual bool failed() const { return false; }
  };
  using Opener = std::function<std::unique_ptr<Pieces>()>;

  struct Entry {
    std::string module;     // YANG module of the top-level node
    std::string top_node;   // its name
    Provider build;         // all at once; missing where that takes too long
    Opener open = nullptr;  // may be missing, where the other is not
  };

  // Ends the registration on destruction. May outlive the StateProviders.
  class Registration {
   public:
    Registration() = default;
    Registration(Registration&&) = default;
    Registration& operator=(Registration&& other) noexcept;
    ~Registration();

   private:
    friend class StateProviders;
    std::weak_ptr<std::list<Entry>> entries_;
    std::list<Entry>::iterator entry_;
  };

  [[nodiscard]] Registration Add(Entry entry);
  // Answers an operation, given as the tree of its input, with the tree of its output, which the
  // caller frees with lyd_free_all(). Null with the reason in `error` when there is no answer.
  // Takes some milliseconds at most.
  using Answer = std::function<lyd_node*(const lyd_node* input, std::string* error)>;
  // Has the operation `name` answered by `answer`; by nobody when that is null.
  void SetAnswer(const std::string& name, Answer answer) { answers_[name] = std::move(answer); }
  // Null when nobody answers.
  const Answer& AnswerOf(const std::string& name) { return answers_[name]; }

  // The content of an answer that is long, as XML, in pieces.
  class TextPieces {
   public:
    virtual ~TextPieces() = default;
    // Appends the next piece, which may be empty, to `*xml`, in some milliseconds at most; whether
    // there is another.
    virtual bool Next(std::string* xml) = 0;
  };
  // Answers an operation in pieces. They may outlive who answers, and then say no more.
  using LongAnswer = std::function<std::unique_ptr<TextPieces>(const lyd_node* input)>;
  // As SetAnswer() and AnswerOf(), for operations whose answers are long.
  void SetLongAnswer(const std::string& name, LongAnswer answer) {
    long_answers_[name] = std::move(answer);
  }
  const LongAnswer& LongAnswerOf(const std::string& name) { return long_answers_[name]; }

  // Opens a reading of the hits by origin.
  using HitsOpener = std::function<std::unique_ptr<OriginHitsReading>()>;
  // Has hits told by `opener`; by nobody when that is null.
  void SetHits(HitsOpener opener) { hits_ = std::move(opener); }
  // Null when nobody tells.
  std::unique_ptr<OriginHitsReading> OpenHits() const { return hits_ ? hits_() : nullptr; }

  // In the order of registration. Valid until the next change.
  const std::list<Entry>& entries() const { return *entries_; }

 private:
  std::shared_ptr<std::list<Entry>> entries_ = std::make_shared<std::list<Entry>>();
  std::map<std::string, Answer> answers_;
  std::map<std::string, LongAnswer> long_answers_;
  HitsOpener hits_;
};

}  // namespace host

#endif  // HOST_RUNTIME_STATE_PROVIDERS_H_
