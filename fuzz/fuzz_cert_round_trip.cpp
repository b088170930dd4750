// Whatever Crypt_Decode_Cert accepts must encode again. The certificate is split into its
// caller record, outer algorithm and signature; the record goes back to TBS DER through
// the library's encoder and is wrapped with the same algorithm and signature (no signing:
// the signature is carried over as it stands). The new certificate must decode to the
// same outputs of Crypt_Decode_Cert, every one of them, and encoding it once more must
// give the same TBS octets: the encoder's output is a fixed point of decode then encode.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "frame/buffer.h"
#include "fuzz_support.h"
#include "hylorn.h"
#include "split_cert.h"
#include "x509/cert.h"
#include "x509/cert_calls.h"
#include "x509/signed_packet.h"

namespace {

using namespace hylorn;
using fuzz_support::check;
using fuzz_support::same;
using Bytes = std::vector<unsigned char>;

using Split = fuzz_support::SplitCert;

// The caller record back to TBS DER, wrapped with the given algorithm and signature. As
// Crypt_Encode_Cert does, the version is always written: decoding never sets the flag
// that asks for it.
Bytes re_encode(Split& split, Bytes* tbs) {
  split.tbs.versionPresent = 1;
  // Nor does it write unique identifiers, which no caller output carries: an empty one
  // reads, but the BIT STRING encoder refuses empty contents.
  split.tbs.issuerUniqueIDPresent = split.tbs.subjectUniqueIDPresent = 0;
  tbs->assign(kTbsMaxSize, 0);
  u32 tbsLen = 0;
  check(c2d_USER_X509_TBS_CERT(&split.tbs, tbs->data(), &tbsLen) == 0);
  tbs->resize(tbsLen);
  COMMON_SIGNED_PACKET packet;
  ini_COMMON_SIGNED_PACKET(&packet);
  check(copy_DATA_BUFFER(&packet.tbs, tbsLen, tbs->data()) == 0);
  check(u2l_signature(&split.alg, &packet.signatureAlgorithm) == 0);
  check(copy_DATA_BUFFER(&packet.signature, split.sigLen, split.sig) == 0);
  DATA_BUFFER der{};
  check(Der_Encode_COMMON_SIGNED_PACKET(&packet, &der) == 0);
  Bytes cert(der.data, der.data + der.length);
  free_DATA_BUFFER(&der);
  free_COMMON_SIGNED_PACKET(&packet);
  return cert;
}

// Validity times that cannot come back, left out of the comparison so the rest of the
// certificate is still checked: a year before 1951 has no UTCTime form (whose 50 reads
// back as 2050) and the encoder writes GeneralizedTime only from 2050 on; and the time
// decoder takes contents that are not 14 digits (short, or with a NUL inside), which the
// caller's text cannot carry back. Both are known limits of the time coders.
bool comes_back(const char* time) {
  for (int i = 0; i < 14; ++i) {
    if (time[i] < '0' || time[i] > '9') return false;
  }
  return time[14] == '\0' && std::strncmp(time, "1951", 4) >= 0;
}

// True when a time was left out.
bool forget_times_that_cannot_come_back(x509_test::CertOutput* before,
                                        x509_test::CertOutput* after) {
  bool forgotten = false;
  for (auto field : {&x509_test::CertOutput::notBefore, &x509_test::CertOutput::notAfter}) {
    if (!comes_back(before->*field)) {
      std::memset(before->*field, 0, sizeof(before->*field));
      std::memset(after->*field, 0, sizeof(after->*field));
      forgotten = true;
    }
  }
  return forgotten;
}

// Whether the record holds any extension the encoder can write back.
bool knows_an_extension(const CERT_EXTN_INFO& e) {
  const u32 flags[] = {e.authorityKeyIdentifierPresent,
                       e.subjectKeyIdentifierPresent,
                       e.privateKeyUsagePeriodPresent,
                       e.certificatePoliciesPresent,
                       e.basicConstraintsPresent,
                       e.keyUsagePresent,
                       e.extKeyUsagePresent,
                       e.netscapeCertTypePresent,
                       e.setCertTypePresent,
                       e.setHashedRootKeyPresent,
                       e.privateExtensionPresent};
  for (u32 f : flags)
    if (f != 0) return true;
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > HYLORN_CERT_DER_SIZE) return 0;
  const Bytes first(data, data + size);
  auto before = std::make_unique<x509_test::CertOutput>();
  if (x509_test::decode_cert(first, before.get()) != 0) return 0;
  // An empty key BIT STRING reads, but the encoder refuses empty contents, as
  // Crypt_Encode_Cert refuses a key of no octets: such a certificate has no second form.
  if (before->pubKeyLen == 0) return 0;

  auto split = std::make_unique<Split>();
  check(Decode_X509_Signed_Cert(first.data(), u32(size), &split->tbs, &split->alg, split->sig,
                                &split->sigLen) == 0);
  // A [3] of unknown extensions alone reads as present but holds nothing to write. The
  // selection bits cannot tell: SubjectKeyIdentifier, ExtKeyUsage and the private
  // extension have none, so the record's own presence flags decide.
  if (!knows_an_extension(split->tbs.extensions)) split->tbs.extensionsPresent = 0;
  // A path length read beside cA FALSE is dropped by the encoder, which writes one only
  // for a CA: it comes back as BasicConstraints without a path length.
  const USER_XEXT_BasicConstraints& bc = split->tbs.extensions.basicConstraints;
  if (split->tbs.extensions.basicConstraintsPresent != 0 && bc.cA == 0) before->pathLen = -1;
  Bytes tbs;
  const Bytes second = re_encode(*split, &tbs);

  auto after = std::make_unique<x509_test::CertOutput>();
  check(x509_test::decode_cert(second, after.get()) == 0);
  const bool changed = forget_times_that_cannot_come_back(before.get(), after.get());
  check(std::memcmp(before.get(), after.get(), sizeof *before) == 0);
  if (changed) return 0;  // such a time may change again on the next trip

  auto again = std::make_unique<Split>();
  check(Decode_X509_Signed_Cert(second.data(), u32(second.size()), &again->tbs, &again->alg,
                                again->sig, &again->sigLen) == 0);
  Bytes tbsAgain;
  const Bytes third = re_encode(*again, &tbsAgain);
  check(same(tbs.data(), tbs.size(), tbsAgain.data(), tbsAgain.size()));
  check(same(second.data(), second.size(), third.data(), third.size()));
  return 0;
}
