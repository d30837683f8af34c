#ifndef MORVA_TESTS_HOSTILE_BAG_DAMAGE_H_
#define MORVA_TESTS_HOSTILE_BAG_DAMAGE_H_

#include <string>

namespace morva::test {

/// Makes the checksums of the header and of every chunk right again, as far as the framing goes.
void repairChecksums(std::string* bag);

}  // namespace morva::test

#endif  // MORVA_TESTS_HOSTILE_BAG_DAMAGE_H_
