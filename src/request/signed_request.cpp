#include "request/signed_request.h"

#include <cstdlib>
#include <cstring>

#include "asn1/algorithm.h"

namespace hylorn {

u32 split_signed_request(const ErrorScope& err, const u8* der, u32 derLen,
                         COMMON_SIGNED_PACKET* packet) {
  auto* copy = static_cast<u8*>(std::malloc(derLen > 0 ? derLen : 1));
  if (copy == nullptr) return err.fail(1, "malloc");
  if (derLen > 0) std::memcpy(copy, der, derLen);
  const u32 split = Der_Decode_COMMON_SIGNED_PACKET(derLen, copy, packet);
  std::free(copy);
  if (split != 0) return err.fail(2, "Der_Decode_COMMON_SIGNED_PACKET");
  return 0;
}

u32 check_signature_algorithm(const ErrorScope& err, const X509_ALG_ID* alg) {
  USER_X509_ALG_ID dropped;
  if (l2u_signature(alg, &dropped) != 0) return err.fail(5, "l2u_signature");
  return 0;
}

}  // namespace hylorn
