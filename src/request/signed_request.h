// The unwrapping step both request formats share: split the signed wrapper, hand its
// to-be-signed element to the format's decoder, and accept only a signature algorithm
// the library knows. The signature itself is dropped unchecked.
#pragma once

#include "frame/error.h"
#include "frame/guard.h"
#include "frame/types.h"
#include "x509/signed_packet.h"

namespace hylorn {

// Splits der from a heap copy of exactly derLen bytes, so that a decoder reading past the
// end is caught by the allocator's checks even inside a larger caller buffer. Entries
// under err: 1 "malloc", 2 "Der_Decode_COMMON_SIGNED_PACKET". packet has been through
// ini_ and is left empty on failure.
u32 split_signed_request(const ErrorScope& err, const u8* der, u32 derLen,
                         COMMON_SIGNED_PACKET* packet);

// 5 "l2u_signature" under err when the algorithm is unknown or its parameters too long.
u32 check_signature_algorithm(const ErrorScope& err, const X509_ALG_ID* alg);

// The whole step; decode_tbs(length, bytes) fills the caller's record and its failure is
// entry 4 with tbs_msg.
template <class DecodeTbs>
u32 unwrap_signed_request(const ErrorScope& err, const u8* der, u32 derLen, const char* tbs_msg,
                          DecodeTbs decode_tbs) {
  COMMON_SIGNED_PACKET packet;
  ini_COMMON_SIGNED_PACKET(&packet);
  if (split_signed_request(err, der, derLen, &packet) != 0) return 1;
  auto release = on_exit([&] { free_COMMON_SIGNED_PACKET(&packet); });
  if (decode_tbs(packet.tbs.length, packet.tbs.data) != 0) return err.fail(4, tbs_msg);
  return check_signature_algorithm(err, &packet.signatureAlgorithm);
}

}  // namespace hylorn
