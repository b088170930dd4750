// A certificate as Decode_X509_Signed_Cert splits it: the caller's TBS record, the
// signature algorithm and the signature octets.
#pragma once

#include "x509/cert.h"

namespace fuzz_support {

struct SplitCert {
  hylorn::USER_X509_TBS_CERT tbs;
  hylorn::USER_X509_ALG_ID alg;
  hylorn::u8 sig[hylorn::kSignatureSize];
  hylorn::u32 sigLen;
};

}  // namespace fuzz_support
