#ifndef MORVA_PLATFORM_THREAD_H_
#define MORVA_PLATFORM_THREAD_H_

namespace osmik {

class Thread {
 public:
  /// Suspends the calling thread for at least `milliseconds`.
  static void msleep(int milliseconds);
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_THREAD_H_
