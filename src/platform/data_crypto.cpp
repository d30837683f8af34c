#include "platform/data_crypto.h"

namespace morva {

std::string DataCrypto::encrypt(std::string data) { return data; }

std::string DataCrypto::decrypt(std::string data) { return data; }

}  // namespace morva
