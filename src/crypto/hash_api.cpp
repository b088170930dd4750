// Crypt_Gen_Hash and Crypt_Gen_Encoded_Hash: a digest chosen by algorithm number, bare or
// wrapped in the DER DigestInfo of PKCS #1 v1.5 signatures.
#include <cstring>

#include "crypto/digest.h"
#include "hylorn.h"

namespace hylorn {
namespace {

// DigestInfo ::= SEQUENCE { digestAlgorithm AlgorithmIdentifier (parameters NULL),
//                           digest OCTET STRING }
// Everything up to the digest's own bytes is constant for a given digest.
constexpr u8 MD2_PREFIX[] = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48,
                             0x86, 0xf7, 0x0d, 0x02, 0x02, 0x05, 0x00, 0x04, 0x10};
constexpr u8 MD5_PREFIX[] = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48,
                             0x86, 0xf7, 0x0d, 0x02, 0x05, 0x05, 0x00, 0x04, 0x10};
constexpr u8 SHA1_PREFIX[] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2b, 0x0e,
                              0x03, 0x02, 0x1a, 0x05, 0x00, 0x04, 0x14};

// An enumerator rather than a function pointer, so that every digest call is direct.
enum class DigestId { md2, md5, sha1 };

struct HashKind {
  DigestId id;
  u32 size;
  const u8* prefix;
  u32 prefix_length;
};

constexpr HashKind MD2_KIND{DigestId::md2, MD2_DIGEST_BYTES, MD2_PREFIX, sizeof MD2_PREFIX};
constexpr HashKind MD5_KIND{DigestId::md5, MD5_DIGEST_BYTES, MD5_PREFIX, sizeof MD5_PREFIX};
constexpr HashKind SHA1_KIND{DigestId::sha1, SHA1_DIGEST_BYTES, SHA1_PREFIX, sizeof SHA1_PREFIX};

// 1/7 MD2, 2/5 MD5, 3/6 SHA-1; 4 (and anything outside 1..7) is refused on purpose.
const HashKind* hash_kind(int alg) {
  switch (alg) {
    case 1: case 7: return &MD2_KIND;
    case 2: case 5: return &MD5_KIND;
    case 3: case 6: return &SHA1_KIND;
    default: return nullptr;
  }
}

u8* run_digest(DigestId id, const u8* data, u32 length, u8* output) {
  switch (id) {
    case DigestId::md2: return Digest_MD2(data, length, output);
    case DigestId::md5: return Digest_MD5(data, length, output);
    case DigestId::sha1: break;
  }
  return Digest_SHA1(data, length, output);
}

}  // namespace
}  // namespace hylorn

extern "C" HYLORN_API int Crypt_Gen_Hash(int alg, const unsigned char* data,
                                         unsigned int dataLen, unsigned char* digest,
                                         unsigned int* digestLen) {
  const hylorn::HashKind* kind = hylorn::hash_kind(alg);
  if (kind == nullptr) return 1;
  hylorn::run_digest(kind->id, data, dataLen, digest);
  *digestLen = kind->size;
  return 0;
}

extern "C" HYLORN_API int Crypt_Gen_Encoded_Hash(int alg, const unsigned char* data,
                                                 unsigned int dataLen, unsigned char* encoded,
                                                 unsigned int* encodedLen) {
  const hylorn::HashKind* kind = hylorn::hash_kind(alg);
  if (kind == nullptr) return 1;
  unsigned char digest[hylorn::SHA1_DIGEST_BYTES];
  hylorn::run_digest(kind->id, data, dataLen, digest);
  std::memcpy(encoded, kind->prefix, kind->prefix_length);
  std::memcpy(encoded + kind->prefix_length, digest, kind->size);
  *encodedLen = kind->prefix_length + kind->size;
  return 0;
}
