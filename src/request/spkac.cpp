#include "request/spkac.h"

#include <cstring>

#include "asn1/der.h"
#include "asn1/list.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "request/signed_request.h"
#include "x509/field_list.h"
#include "x509/public_key.h"

namespace hylorn {

u32 ini_NETSCAPE_CERT_REQ_INFO(NETSCAPE_CERT_REQ_INFO* info) {
  ini_X509_PUBLIC_KEY(&info->subjectPublicKeyInfo);
  return ini_DATA_BUFFER(&info->challenge);
}

u32 free_NETSCAPE_CERT_REQ_INFO(NETSCAPE_CERT_REQ_INFO* info) {
  free_X509_PUBLIC_KEY(&info->subjectPublicKeyInfo);
  return free_DATA_BUFFER(&info->challenge);
}

// PublicKeyAndChallenge ::= SEQUENCE { spki SubjectPublicKeyInfo, challenge IA5String }
u32 Der_Decode_NETSCAPE_CERT_REQ_INFO(u32 total, const u8* der, NETSCAPE_CERT_REQ_INFO* info) {
  ErrorScope err(705);
  FieldReader elements;
  if (ASN1_Decode_Sequence(total, der, elements.out()) != 0) {
    return err.fail(2, "ASN1_Decode_Sequence");
  }
  const DATA_BUFFER* spki = elements.next();
  if (spki == nullptr) return err.fail(16, " ");
  auto undo = on_exit([&] { free_NETSCAPE_CERT_REQ_INFO(info); });
  if (Der_Decode_X509_Public_Key(spki->length, spki->data, &info->subjectPublicKeyInfo) != 0) {
    return err.fail(17, "Der_Decode_X509_Public_Key");
  }
  const DATA_BUFFER* challenge = elements.next();
  if (challenge == nullptr) return err.fail(21, "encode error");
  if (ASN1_Decode_IA5String(challenge->length, challenge->data, &info->challenge) != 0) {
    return err.fail(17, "ASN1_Decode_IA5String");
  }
  undo.release();
  return 0;
}

u32 l2u_challenge(const DATA_BUFFER* challenge, char out[kChallengeSize]) {
  ErrorScope err(802);
  if (challenge->length >= kChallengeSize) return err.fail(1, "challenge too long");
  if (challenge->length > 0) std::memcpy(out, challenge->data, challenge->length);
  out[challenge->length] = '\0';
  return 0;
}

u32 l2u_USER_NETSCAPE_CERT_REQ_INFO(const NETSCAPE_CERT_REQ_INFO* info,
                                    USER_NETSCAPE_CERT_REQ_INFO* user) {
  ErrorScope err(702);
  if (l2u_subjectPublickeyInfo(&info->subjectPublicKeyInfo, &user->subjectPublicKeyInfo) != 0) {
    return err.fail(4, "l2u_subjectPublickeyInfo");
  }
  if (l2u_challenge(&info->challenge, user->challenge) != 0) return err.fail(5, "l2u_challenge");
  return 0;
}

u32 d2c_USER_NETSCAPE_CERT_REQ_INFO(u32 total, const u8* der, USER_NETSCAPE_CERT_REQ_INFO* user) {
  ErrorScope err(703);
  NETSCAPE_CERT_REQ_INFO info;
  ini_NETSCAPE_CERT_REQ_INFO(&info);
  if (Der_Decode_NETSCAPE_CERT_REQ_INFO(total, der, &info) != 0) {
    return err.fail(1, "Der_Decode_NETSCAPE_CERT_REQ_INFO");
  }
  auto release = on_exit([&] { free_NETSCAPE_CERT_REQ_INFO(&info); });
  if (l2u_USER_NETSCAPE_CERT_REQ_INFO(&info, user) != 0) {
    return err.fail(2, "l2u_USER_NETSCAPE_CERT_REQ_INFO");
  }
  return 0;
}

u32 Decode_Netscape_Signed_Req(const u8* der, u32 derLen, USER_NETSCAPE_CERT_REQ_INFO* user) {
  ErrorScope err(704);
  return unwrap_signed_request(err, der, derLen, "d2c_USER_NETSCAPE_CERT_REQ_INFO",
                               [user](u32 total, const u8* tbs) {
                                 return d2c_USER_NETSCAPE_CERT_REQ_INFO(total, tbs, user);
                               });
}

}  // namespace hylorn
