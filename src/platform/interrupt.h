#ifndef MORVA_PLATFORM_INTERRUPT_H_
#define MORVA_PLATFORM_INTERRUPT_H_

namespace osmik {

/// Turns the signals that ask a program to end, SIGINT (Ctrl-C) and SIGTERM, into a question that
/// it asks itself at moments that suit it. In force while it lives; one at a time.
///
/// The first signal of each kind is only noted. A second one of the kind ends the program at once,
/// for users who do not want to wait. A SIGINT that the program was started to ignore stays
/// ignored.
class Interrupt {
 public:
  Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;
  ~Interrupt();

  /// True once a signal came, since the object was made. Threads: any.
  [[nodiscard]] static bool requested();
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_INTERRUPT_H_
