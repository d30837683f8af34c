#ifndef MORVA_KIT_INTERRUPT_H_
#define MORVA_KIT_INTERRUPT_H_

namespace morva::kit {

/// While one lives, an interrupt from the keyboard or a request to terminate does not end the
/// program but is noted, so that a command can clear away what it has begun.
class InterruptGuard {
 public:
  InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
  ~InterruptGuard();

  [[nodiscard]] static bool isInterrupted();

 private:
  using Handler = void (*)(int);

  Handler onInterrupt_;
  Handler onTerminate_;
};

}  // namespace morva::kit

#endif  // MORVA_KIT_INTERRUPT_H_
