// How words change that searches may be reading.
#ifndef HOST_CLASSIFIER_STORE_WORD_H_
#define HOST_CLASSIFIER_STORE_WORD_H_

namespace host::classifier {

// Stores `value` at once, after all that was stored before. On machines whose words are shorter it
// takes two stores; no search runs beside the classifier there.
template <class T, class U>
inline void StoreWord(T* word, U value) {
  if constexpr (sizeof(T) <= sizeof(void*)) {
    __atomic_store_n(word, static_cast<T>(value), __ATOMIC_RELEASE);
  } else {
    __atomic_thread_fence(__ATOMIC_RELEASE);
    *static_cast<volatile T*>(word) = static_cast<T>(value);
  }
}

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_STORE_WORD_H_
