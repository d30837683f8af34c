#ifndef MORVA_PLATFORM_DATA_CRYPTO_H_
#define MORVA_PLATFORM_DATA_CRYPTO_H_

#include <string>

namespace morva {

/// Hook for scrambled header and file contents. Both operations return their input unchanged: no
/// file written by this system is scrambled.
class DataCrypto {
 public:
  [[nodiscard]] static std::string encrypt(std::string data);
  [[nodiscard]] static std::string decrypt(std::string data);
};

}  // namespace morva

#endif  // MORVA_PLATFORM_DATA_CRYPTO_H_
