// Ownership of a value that copies share until one of them is changed.
#ifndef PLATFORM_FILTERS_COMMON_COUNTED_PTR_H_
#define PLATFORM_FILTERS_COMMON_COUNTED_PTR_H_

#include <utility>

namespace FiltersCommon {

// As a shared pointer, but one word wide and counted by a plain number next to the value: the
// owners of a value belong to one thread.
template <class T>
class CountedPtr {
 public:
  CountedPtr() = default;
  CountedPtr(const CountedPtr& other) : box_(other.box_) {
    if (box_ != nullptr) ++box_->owners;
  }
  CountedPtr(CountedPtr&& other) noexcept : box_(std::exchange(other.box_, nullptr)) {}
  CountedPtr& operator=(const CountedPtr& other) {
    // Counting would touch memory for nothing.
    if (this != &other && box_ != other.box_) CountedPtr(other).Swap(this);
    return *this;
  }
  CountedPtr& operator=(CountedPtr&& other) noexcept {
    CountedPtr(std::move(other)).Swap(this);
    return *this;
  }
  ~CountedPtr() {
    if (box_ != nullptr && --box_->owners == 0) delete box_;
  }

  // The owner of a new value, made from `args`.
  template <class... Args>
  static CountedPtr Make(Args&&... args) {
    CountedPtr owner;
    owner.box_ = new Box{1, T(std::forward<Args>(args)...)};
    return owner;
  }

  // Null when there is no value; the operators want one.
  T* get() const { return box_ == nullptr ? nullptr : &box_->value; }
  T& operator*() const { return box_->value; }
  T* operator->() const { return &box_->value; }
  explicit operator bool() const { return box_ != nullptr; }
  // Whether there is a value and no other owner of it.
  bool unique() const { return box_ != nullptr && box_->owners == 1; }

 private:
  void Swap(CountedPtr* other) noexcept { std::swap(box_, other->box_); }

  struct Box {
    unsigned int owners;
    T value;
  };

  Box* box_ = nullptr;
};

}  // namespace FiltersCommon

#endif  // PLATFORM_FILTERS_COMMON_COUNTED_PTR_H_
