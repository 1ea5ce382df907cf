// Ownership of a value that copies share until one of them is changed.
#ifndef PLATFORM_FILTERS_COMMON_COUNTED_PTR_H_
#define PLATFORM_FILTERS_COMMON_COUNTED_PTR_H_

#include <new>
#include <type_traits>
#include <utility>

#include "platform/filters_common/slot_pool.h"

namespace FiltersCommon {

// As a shared pointer, but one word wide and counted by a plain number apart from the value (see
// slot_pool.h): the owners of a value belong to one thread.
template <class T>
class CountedPtr {
 public:
  CountedPtr() = default;
  CountedPtr(const CountedPtr& other) : value_(other.value_) {
    if (value_ != nullptr) ++Owners();
  }
  CountedPtr(CountedPtr&& other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
  CountedPtr& operator=(const CountedPtr& other) {
    // Counting would touch memory for nothing.
    if (this != &other && value_ != other.value_) CountedPtr(other).Swap(this);
    return *this;
  }
  CountedPtr& operator=(CountedPtr&& other) noexcept {
    CountedPtr(std::move(other)).Swap(this);
    return *this;
  }
  ~CountedPtr() { Release(value_, 1); }

  // The owner of a new value, made from `args`.
  template <class... Args>
  static CountedPtr Make(Args&&... args) {
    struct Slot {  // given back when the value cannot be made
      void* memory = Pool::Take();
      ~Slot() {
        if (memory != nullptr) Pool::Give(memory);
      }
    } slot;
    CountedPtr owner;
    owner.value_ = new (slot.memory) Value(std::forward<Args>(args)...);
    slot.memory = nullptr;
    owner.Owners() = 1;
    return owner;
  }

  // One that is not counted as an owner, and has to Forget() the value before it ends.
  static CountedPtr Uncounted(T* value) {
    CountedPtr pointer;
    pointer.value_ = value;
    return pointer;
  }
  void Forget() { value_ = nullptr; }

  // Null when there is no value; the operators want one.
  T* get() const { return value_; }
  T& operator*() const { return *value_; }
  T* operator->() const { return value_; }
  explicit operator bool() const { return value_ != nullptr; }
  // Ends `count` ownerships at once, of owners that nobody ends otherwise.
  static void Release(T* value, uint32_t count) {
    if (value != nullptr && (Pool::NumberOf(value) -= count) == 0) Free(value);
  }
  // Whether there is a value and no other owner of it.
  bool unique() const { return value_ != nullptr && Owners() == 1; }

 private:
  using Value = std::remove_const_t<T>;
  struct Pool;  // not before the value's class is complete

  void Swap(CountedPtr* other) noexcept { std::swap(value_, other->value_); }
  uint32_t& Owners() const { return Pool::NumberOf(value_); }
  static void Free(T* value) {
    value->~T();
    Pool::Give(const_cast<Value*>(value));
  }

  T* value_ = nullptr;
};

template <class T>
struct CountedPtr<T>::Pool : SlotPool<(sizeof(T) < 16 ? 16 : sizeof(T))> {};

}  // namespace FiltersCommon

#endif  // PLATFORM_FILTERS_COMMON_COUNTED_PTR_H_
