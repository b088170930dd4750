// Certificate chains: two certificates as a DER SET, and that SET inside a
// certificates-only PKCS #7 SignedData, the form browsers import as a chain.
#include <array>
#include <cstring>

#include "asn1/der_reader.h"
#include "asn1/list.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "hylorn.h"

using namespace hylorn;

namespace {

constexpr u32 kChainSlots = 5;  // the chain record's slots; two are filled

struct CertSlot {
  const u8* der;
  u32 length;
};

// Certificates ::= SET OF Certificate, in the order given, up to the first empty slot.
u32 encode_chain(const std::array<CertSlot, kChainSlots>& slots, u8* out, u32* outLen) {
  ErrorScope err(321);
  for (const CertSlot& slot : slots) {
    if (slot.length > HYLORN_CHAIN_SLOT_SIZE) return err.fail(1, "data too length");
  }
  ASN1_SET* head = nullptr;
  auto free_list = on_exit([&] { free_ASN1_SET(head); });
  ASN1_SET** tail = &head;
  for (const CertSlot& slot : slots) {
    if (slot.length == 0) break;
    if (new_ASN1_SET(tail) != 0 || copy_DATA_BUFFER(&(*tail)->value, slot.length, slot.der)) {
      return err.fail(1, "new_ASN1_SEQUENCE");
    }
    tail = &(*tail)->next;
  }
  DATA_BUFFER set{};
  auto free_set = on_exit([&] { free_DATA_BUFFER(&set); });
  if (ASN1_Encode_Set(head, &set) != 0) return err.fail(1, "ASN1_Encode_Sequence");
  std::memcpy(out, set.data, set.length);
  *outLen = set.length;
  return 0;
}

// ContentInfo ::= SEQUENCE { contentType signedData, content [0] EXPLICIT SignedData }
// SignedData ::= SEQUENCE { version 1, digestAlgorithms SET {}, contentInfo { data },
//                           certificates [0] IMPLICIT SET OF Certificate,
//                           signerInfos SET {} }
constexpr u8 kSignedDataOid[] = {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
constexpr u8 kSignedDataHead[] = {0x02, 0x01, 0x01,  // version 1
                                  0x31, 0x00,        // no digest algorithms
                                  0x30, 0x0B, 0x06, 0x09, 0x2A, 0x86, 0x48,
                                  0x86, 0xF7, 0x0D, 0x01, 0x07, 0x01};  // content type data
constexpr u8 kNoSignerInfos[] = {0x31, 0x00};
constexpr u8 kImplicitCertificates = 0xA0;

u8* put(u8* p, const u8* bytes, u32 n) {
  std::memcpy(p, bytes, n);
  return p + n;
}

u32 encode_pkcs7_chain(const u8* chain, u32 chainLen, u8* out, u32* outLen) {
  ErrorScope err(604);
  if (chainLen == 0 || chainLen > HYLORN_CHAIN_SIZE) return err.fail(1, "data too length");
  const u32 signedData = sizeof kSignedDataHead + chainLen + sizeof kNoSignerInfos;
  const u32 signedDataSize = der_element_size(signedData);
  const u32 explicitSize = der_element_size(signedDataSize);
  const u32 contentInfo = sizeof kSignedDataOid + explicitSize;
  const u32 total = der_element_size(contentInfo);
  // Written straight into the caller's buffer, which has room for the largest chain.
  u8* p = write_der_header(out, 0x30, contentInfo);
  p = put(p, kSignedDataOid, sizeof kSignedDataOid);
  p = write_der_header(p, 0xA0, signedDataSize);
  p = write_der_header(p, 0x30, signedData);
  p = put(p, kSignedDataHead, sizeof kSignedDataHead);
  // The chain's SET becomes the [0] IMPLICIT certificates field: only its tag changes.
  *p = kImplicitCertificates;
  p = put(p + 1, chain + 1, chainLen - 1);
  put(p, kNoSignerInfos, sizeof kNoSignerInfos);
  *outLen = total;
  return 0;
}

}  // namespace

// Each certificate must fit its 2,048-octet slot of the chain record.
extern "C" HYLORN_API u32 Crypt_Gen_Cert_Chain(const u8* cert1, u32 cert1Len, const u8* cert2,
                                               u32 cert2Len, u8* out, u32* outLen) {
  const std::array<CertSlot, kChainSlots> slots = {{{cert1, cert1Len}, {cert2, cert2Len}}};
  return encode_chain(slots, out, outLen);
}

// The chain is taken as it stands (its contents are not examined), up to the size that
// Crypt_Gen_Cert_Chain can make.
extern "C" HYLORN_API u32 Crypt_Gen_Ie_Cert_Chain(const u8* chain, u32 chainLen, u8* out,
                                                  u32* outLen) {
  return encode_pkcs7_chain(chain, chainLen, out, outLen);
}
