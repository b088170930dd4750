// The signed wrapper that certificates, CRLs and requests share.
//
//   SEQUENCE { tbs (whole element), signatureAlgorithm AlgorithmIdentifier,
//              signature BIT STRING }
#pragma once

#include "asn1/algorithm.h"
#include "frame/buffer.h"
#include "frame/error.h"
#include "frame/types.h"

namespace hylorn {

struct COMMON_SIGNED_PACKET {
  DATA_BUFFER tbs;  // the whole to-be-signed element, exactly as signed
  X509_ALG_ID signatureAlgorithm;
  DATA_BUFFER signature;  // the BIT STRING's octets
};

u32 ini_COMMON_SIGNED_PACKET(COMMON_SIGNED_PACKET* packet);
u32 free_COMMON_SIGNED_PACKET(COMMON_SIGNED_PACKET* packet);  // 413

// The step every signed object takes: signs packet->tbs through Crypt_Gen_Signature with
// the caller's algorithm number and key name, and keeps the signature in the packet. A
// failure is reported under err as (sign_err, "Crypt_Gen_Signature") or, when the copy
// cannot be made, (memory_err, "malloc").
u32 sign_COMMON_SIGNED_PACKET(const ErrorScope& err, int sign_err, int memory_err, u16 alg,
                              const char* keyName, const char* secondText,
                              COMMON_SIGNED_PACKET* packet);

u32 Der_Encode_COMMON_SIGNED_PACKET(const COMMON_SIGNED_PACKET* packet, DATA_BUFFER* out);  // 410
// packet has been through ini_; on failure it is left empty (411).
u32 Der_Decode_COMMON_SIGNED_PACKET(u32 total, const u8* der, COMMON_SIGNED_PACKET* packet);

}  // namespace hylorn
