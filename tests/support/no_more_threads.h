#ifndef MORVA_TESTS_SUPPORT_NO_MORE_THREADS_H_
#define MORVA_TESTS_SUPPORT_NO_MORE_THREADS_H_

#include <cstddef>
#include <pthread.h>

namespace morva::test {

/// No thread can be started while it lives: the default stack is larger than any address space.
class NoMoreThreads {
 public:
  NoMoreThreads() {
    pthread_getattr_default_np(&before_);
    pthread_attr_t huge = before_;
    pthread_attr_setstacksize(&huge, std::size_t{1} << 60U);
    pthread_setattr_default_np(&huge);
  }
  NoMoreThreads(const NoMoreThreads&) = delete;
  NoMoreThreads& operator=(const NoMoreThreads&) = delete;
  ~NoMoreThreads() { pthread_setattr_default_np(&before_); }

 private:
  pthread_attr_t before_{};
};

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_NO_MORE_THREADS_H_
