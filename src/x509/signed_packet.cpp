#include "x509/signed_packet.h"

#include "asn1/der.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "hylorn.h"
#include "x509/field_list.h"
#include "x509/public_key.h"

namespace hylorn {
namespace {

constexpr int kFnEncodePacket = 410;
constexpr int kFnDecodePacket = 411;

}  // namespace

u32 ini_COMMON_SIGNED_PACKET(COMMON_SIGNED_PACKET* packet) {
  ini_DATA_BUFFER(&packet->tbs);
  ini_X509_ALG_ID(&packet->signatureAlgorithm);
  return ini_DATA_BUFFER(&packet->signature);
}

u32 free_COMMON_SIGNED_PACKET(COMMON_SIGNED_PACKET* packet) {
  free_DATA_BUFFER(&packet->tbs);
  free_X509_ALG_ID(&packet->signatureAlgorithm);
  return free_DATA_BUFFER(&packet->signature);
}

// SEQUENCE { tbs, signatureAlgorithm AlgorithmIdentifier, signature BIT STRING }
u32 Der_Encode_COMMON_SIGNED_PACKET(const COMMON_SIGNED_PACKET* packet, DATA_BUFFER* out) {
  ErrorScope err(kFnEncodePacket);
  FieldBuilder parts;
  DATA_BUFFER* tbs = parts.append();
  if (tbs == nullptr) return err.fail(2, "new_ASN1_SEQUENCE");
  if (copy_DATA_BUFFER(tbs, packet->tbs.length, packet->tbs.data) != 0) {
    return err.fail(3, "copy_DATA_BUFFER");
  }
  DATA_BUFFER* algorithm = parts.append();
  if (algorithm == nullptr) return err.fail(4, "new_ASN1_SEQUENCE");
  if (Der_Encode_X509_Alg_Id(&packet->signatureAlgorithm, algorithm) != 0) {
    return err.fail(5, "Der_Encode_X509_Alg_Id");
  }
  DATA_BUFFER* signature = parts.append();
  if (signature == nullptr) return err.fail(6, "new_ASN1_SEQUENCE");
  const BIT_DATA_BUFFER bits{packet->signature.length, 0, packet->signature.data};
  if (ASN1_Encode_Bit_String(bits, signature) != 0) return err.fail(8, "ASN1_Encode_Bit_String");
  if (ASN1_Encode_Sequence(parts.head(), out) != 0) return err.fail(9, "ASN1_Encode_Sequence");
  return 0;
}

u32 Der_Decode_COMMON_SIGNED_PACKET(u32 total, const u8* der, COMMON_SIGNED_PACKET* packet) {
  ErrorScope err(kFnDecodePacket);
  FieldReader parts;
  if (ASN1_Decode_Sequence(total, der, parts.out()) != 0) {
    return err.fail(1, "ASN1_Decode_Sequence");
  }
  auto empty_packet = on_exit([&] { free_COMMON_SIGNED_PACKET(packet); });
  const DATA_BUFFER* tbs = parts.next();
  if (tbs == nullptr) return err.fail(2, " ");
  if (copy_DATA_BUFFER(&packet->tbs, tbs->length, tbs->data) != 0) {
    return err.fail(3, "copy_DATA_BUFFER");
  }
  const DATA_BUFFER* algorithm = parts.next();
  if (algorithm == nullptr) return err.fail(4, " ");
  if (Der_Decode_X509_Alg_Id(algorithm->length, algorithm->data, &packet->signatureAlgorithm) !=
      0) {
    return err.fail(5, "Der_Decode_X509_Alg_Id");
  }
  const DATA_BUFFER* signature = parts.next();
  if (signature == nullptr) return err.fail(6, " ");
  BIT_DATA_BUFFER bits{};
  if (ASN1_Decode_Bit_String(signature->length, signature->data, &bits) != 0) {
    return err.fail(7, "ASN1_Decode_Bit_String");
  }
  // The octets move over as they are; the unused-bits count is not kept.
  packet->signature = DATA_BUFFER{bits.length, bits.data};
  empty_packet.release();
  return 0;
}

u32 sign_COMMON_SIGNED_PACKET(const ErrorScope& err, int sign_err, int memory_err, u16 alg,
                              const char* keyName, const char* secondText,
                              COMMON_SIGNED_PACKET* packet) {
  u8 sig[HYLORN_RSA_BLOCK_SIZE];
  u32 sigLen = 0;
  if (Crypt_Gen_Signature(alg, keyName, secondText, packet->tbs.data, packet->tbs.length, sig,
                          &sigLen) != 0) {
    return err.fail(sign_err, "Crypt_Gen_Signature");
  }
  if (copy_DATA_BUFFER(&packet->signature, sigLen, sig) != 0) return err.fail(memory_err, "malloc");
  return 0;
}

}  // namespace hylorn
