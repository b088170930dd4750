#include "asn1/algorithm.h"

#include <cstdlib>
#include <cstring>

#include "frame/error.h"
#include "frame/guard.h"

namespace hylorn {

u32 ini_X509_ALG_ID(X509_ALG_ID* alg) {
  ini_ASN1_OBJECT_ID(&alg->algorithm);
  return ini_DATA_BUFFER(&alg->parameters);
}

u32 free_X509_ALG_ID(X509_ALG_ID* alg) {
  free_ASN1_OBJECT_ID(&alg->algorithm);
  return free_DATA_BUFFER(&alg->parameters);
}

u32 u2l_signature(const USER_X509_ALG_ID* user, X509_ALG_ID* alg) {
  ErrorScope err(303);
  u32 oid_value = 0;
  if (Algorithm_Uid2Oid(user->algorithm, &oid_value) != 0) {
    return err.fail(1, "Algorithm_Uid2Oid");
  }
  alg->algorithm.oidValue = oid_value & 0xFFu;
  if (ASN1_Find_Object_ID(&alg->algorithm) != 0) return err.fail(2, "ASN1_Find_Object_ID");
  auto release = on_exit([&] { free_ASN1_OBJECT_ID(&alg->algorithm); });
  // Our own copy rather than copy_DATA_BUFFER, whose entry would come before ours.
  if (user->parametersLength > 0) {
    auto* p = static_cast<u8*>(std::malloc(user->parametersLength));
    if (p == nullptr) return err.fail(3, "malloc");
    std::memcpy(p, user->parameters, user->parametersLength);
    alg->parameters = DATA_BUFFER{user->parametersLength, p};
  } else {
    ini_DATA_BUFFER(&alg->parameters);
  }
  release.release();
  return 0;
}

u32 l2u_signature(const X509_ALG_ID* alg, USER_X509_ALG_ID* user) {
  ErrorScope err(304);
  if (alg->parameters.length > kAlgorithmParametersSize) {
    return err.fail(1, "parameters too length");
  }
  u32 number = 0;
  if (Algorithm_Oid2Uid(static_cast<u8>(alg->algorithm.oidValue), &number) != 0) {
    return err.fail(2, "Algorithm_Oid2Uid");
  }
  user->algorithm = static_cast<u16>(number);
  user->parametersLength = static_cast<u16>(alg->parameters.length);
  if (alg->parameters.length > 0) {
    std::memcpy(user->parameters, alg->parameters.data, alg->parameters.length);
  }
  return 0;
}

}  // namespace hylorn
