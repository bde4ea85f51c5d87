// The address of a record.
#include "records/database.h"

namespace records {

bool IsServer(const std::string& address) {
  return address.rfind("postgresql://", 0) == 0 || address.rfind("postgres://", 0) == 0;
}

std::string WithoutPassword(const std::string& address) {
  const std::size_t start = address.find("://");
  const std::size_t at = address.find('@');
  if (!IsServer(address) || at == std::string::npos) return address;
  const std::size_t colon = address.find(':', start + 3);
  if (colon > at) return address;
  return address.substr(0, colon) + address.substr(at);
}

}  // namespace records
