#ifndef MORVA_PLATFORM_SINGLETON_H_
#define MORVA_PLATFORM_SINGLETON_H_

namespace osmik {

/// The one object of type T in the process, made at its first use and never destroyed, so that code
/// that runs at exit may still use it. Threads: any.
template <typename T>
class Singleton {
 public:
  static T& getInstance() {
    static T* const instance = new T;  // never destroyed on purpose
    return *instance;
  }
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_SINGLETON_H_
