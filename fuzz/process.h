#ifndef MORVA_FUZZ_PROCESS_H_
#define MORVA_FUZZ_PROCESS_H_

namespace morva::fuzz {

/// Prepares a process that runs targets: what they print is dropped; log lines are made, and
/// dropped too.
void prepareProcess();

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_PROCESS_H_
