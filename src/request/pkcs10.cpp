#include "request/pkcs10.h"

#include <cstdlib>
#include <cstring>

#include "asn1/der.h"
#include "asn1/list.h"
#include "frame/error.h"
#include "frame/guard.h"
#include "hylorn.h"
#include "request/signed_request.h"
#include "x509/field_list.h"
#include "x509/name.h"
#include "x509/public_key.h"
#include "x509/signed_packet.h"
#include "x509/tbs_cert.h"

namespace hylorn {
namespace {

// attributes [0] IMPLICIT SET OF Attribute, with no attribute in it.
constexpr u8 kNoAttributes[] = {0xA0, 0x00};

// One element of the CertificationRequestInfo SEQUENCE, in writing order: how it is made
// and the entries of its two steps.
struct InfoEncoder {
  int node_err;  // "new_ASN1_SEQUENCE"
  int make_err;
  const char* make_msg;
  u32 (*make)(const PKCS10_CERT_REQ_INFO& info, DATA_BUFFER* out);
};

constexpr InfoEncoder kInfoEncoders[] = {
    {2, 4, "Der_Encode_PKCS10_Version",
     [](const PKCS10_CERT_REQ_INFO& i, DATA_BUFFER* o) {
       return Der_Encode_PKCS10_Version(i.version, o);
     }},
    {9, 10, "Der_Encode_X500_Name",
     [](const PKCS10_CERT_REQ_INFO& i, DATA_BUFFER* o) {
       return Der_Encode_X500_Name(i.subject, o);
     }},
    {15, 16, "Der_Encode_X509_Public_Key",
     [](const PKCS10_CERT_REQ_INFO& i, DATA_BUFFER* o) {
       return Der_Encode_X509_Public_Key(&i.subjectPublicKeyInfo, o);
     }},
    {21, 22, "copy_DATA_BUFFER",
     [](const PKCS10_CERT_REQ_INFO& i, DATA_BUFFER* o) {
       return copy_DATA_BUFFER(o, i.attributes.length, i.attributes.data);
     }},
};

// The same elements read back, in order: the entry when the element is missing and when
// it does not decode.
struct InfoDecoder {
  int missing_err;  // " "
  int read_err;
  const char* read_msg;
  u32 (*read)(const DATA_BUFFER& element, PKCS10_CERT_REQ_INFO* info);
};

constexpr InfoDecoder kInfoDecoders[] = {
    {2, 3, "Der_Decode_PKCS10_Version",
     [](const DATA_BUFFER& e, PKCS10_CERT_REQ_INFO* i) {
       return Der_Decode_PKCS10_Version(e.length, e.data, &i->version);
     }},
    {4, 5, "Der_Decode_X500_Name",
     [](const DATA_BUFFER& e, PKCS10_CERT_REQ_INFO* i) {
       return Der_Decode_X500_Name(e.length, e.data, &i->subject);
     }},
    {6, 7, "Der_Decode_X509_Public_Key",
     [](const DATA_BUFFER& e, PKCS10_CERT_REQ_INFO* i) {
       return Der_Decode_X509_Public_Key(e.length, e.data, &i->subjectPublicKeyInfo);
     }},
    {8, 9, "copy_DATA_BUFFER",
     [](const DATA_BUFFER& e, PKCS10_CERT_REQ_INFO* i) {
       return copy_DATA_BUFFER(&i->attributes, e.length, e.data);
     }},
};

}  // namespace

u32 ini_PKCS10_CERT_REQ_INFO(PKCS10_CERT_REQ_INFO* info) {
  info->version = 0;
  info->subject = nullptr;
  ini_X509_PUBLIC_KEY(&info->subjectPublicKeyInfo);
  return ini_DATA_BUFFER(&info->attributes);
}

u32 free_PKCS10_CERT_REQ_INFO(PKCS10_CERT_REQ_INFO* info) {
  free_X500_NAME(info->subject);
  info->subject = nullptr;
  free_X509_PUBLIC_KEY(&info->subjectPublicKeyInfo);
  return free_DATA_BUFFER(&info->attributes);
}

u32 ini_USER_PKCS10_CERT_REQ_INFO(USER_PKCS10_CERT_REQ_INFO* user) {
  std::memset(user, 0, sizeof(*user));
  return 0;
}

// version INTEGER { v1(0) }
u32 Der_Encode_PKCS10_Version(u8 version, DATA_BUFFER* out) {
  ErrorScope err(601);
  if (ASN1_Encode_Integer(DATA_BUFFER{1, &version}, out) != 0) {
    return err.fail(1, "ASN1_Encode_Integer");
  }
  return 0;
}

u32 Der_Decode_PKCS10_Version(u32 total, const u8* der, u8* version) {
  ErrorScope err(602);
  DATA_BUFFER value;
  ini_DATA_BUFFER(&value);
  if (ASN1_Decode_Integer(total, der, &value) != 0) return err.fail(1, "ASN1_Decode_Integer");
  auto release = on_exit([&] { free_DATA_BUFFER(&value); });
  if (value.length != 1) return err.fail(2, "version error");
  *version = value.data[0];
  return 0;
}

constexpr u8 kOnlyRequestVersion = 0;  // PKCS #10 knows v1 only

u32 u2l_pkcs10_version(u8 version, u8* out) {
  return check_version(605, kOnlyRequestVersion, version, out);
}

u32 l2u_pkcs10_version(u8 version, u8* out) {
  return check_version(606, kOnlyRequestVersion, version, out);
}

u32 u2l_attributes(u32, DATA_BUFFER* out) {
  ErrorScope err(607);
  auto* p = static_cast<u8*>(std::malloc(sizeof(kNoAttributes)));
  if (p == nullptr) return err.fail(1, "malloc");
  std::memcpy(p, kNoAttributes, sizeof(kNoAttributes));
  *out = DATA_BUFFER{sizeof(kNoAttributes), p};
  return 0;
}

u32 l2u_attributes(const DATA_BUFFER*, u32* out) {
  *out = 0;
  return 0;
}

u32 u2l_USER_PKCS10_CERT_REQ_INFO(const USER_PKCS10_CERT_REQ_INFO* user,
                                  PKCS10_CERT_REQ_INFO* info) {
  ErrorScope err(609);
  if (ini_PKCS10_CERT_REQ_INFO(info) != 0) return err.fail(1, "ini_PKCS10_CERT_REQ_INFO");
  auto undo = on_exit([&] { free_PKCS10_CERT_REQ_INFO(info); });
  if (u2l_pkcs10_version(user->version, &info->version) != 0) {
    return err.fail(2, "u2l_pkcs10_version");
  }
  if (u2l_X500_NAME(&user->subject, &info->subject) != 0) return err.fail(3, "u2l_X500_NAME");
  if (u2l_subjectPublicKeyInfo(&user->subjectPublicKeyInfo, &info->subjectPublicKeyInfo) != 0) {
    return err.fail(4, "u2l_subjectPublicKeyInfo");
  }
  if (u2l_attributes(user->attributes, &info->attributes) != 0) {
    return err.fail(5, "u2l_attributes");
  }
  undo.release();
  return 0;
}

u32 l2u_USER_PKCS10_CERT_REQ_INFO(const PKCS10_CERT_REQ_INFO* info,
                                  USER_PKCS10_CERT_REQ_INFO* user) {
  ErrorScope err(610);
  if (ini_USER_PKCS10_CERT_REQ_INFO(user) != 0) {
    return err.fail(1, "ini_USER_PKCS10_CERT_REQ_INFO");
  }
  if (l2u_pkcs10_version(info->version, &user->version) != 0) {
    return err.fail(2, "l2u_pkcs10_version");
  }
  if (l2u_X500_NAME(info->subject, &user->subject) != 0) return err.fail(3, "l2u_X500_NAME");
  if (l2u_subjectPublickeyInfo(&info->subjectPublicKeyInfo, &user->subjectPublicKeyInfo) != 0) {
    return err.fail(4, "l2u_subjectPublickeyInfo");
  }
  if (l2u_attributes(&info->attributes, &user->attributes) != 0) {
    return err.fail(5, "l2u_attributes");
  }
  return 0;
}

// CertificationRequestInfo ::= SEQUENCE { version, subject, subjectPKInfo, attributes }
u32 Der_Encode_PKCS10_CERT_REQ_INFO(const PKCS10_CERT_REQ_INFO* info, DATA_BUFFER* out) {
  ErrorScope err(603);
  FieldBuilder elements;
  for (const InfoEncoder& element : kInfoEncoders) {
    DATA_BUFFER* value = elements.append();
    if (value == nullptr) return err.fail(element.node_err, "new_ASN1_SEQUENCE");
    if (element.make(*info, value) != 0) return err.fail(element.make_err, element.make_msg);
  }
  if (ASN1_Encode_Sequence(elements.head(), out) != 0) return err.fail(23, "ASN1_Encode_Sequence");
  return 0;
}

u32 Der_Decode_PKCS10_CERT_REQ_INFO(u32 total, const u8* der, PKCS10_CERT_REQ_INFO* info) {
  ErrorScope err(604);
  FieldReader elements;
  if (ASN1_Decode_Sequence(total, der, elements.out()) != 0) {
    return err.fail(1, "ASN1_Decode_Sequence");
  }
  auto undo = on_exit([&] { free_PKCS10_CERT_REQ_INFO(info); });
  for (const InfoDecoder& element : kInfoDecoders) {
    const DATA_BUFFER* value = elements.next();
    if (value == nullptr) return err.fail(element.missing_err, " ");
    if (element.read(*value, info) != 0) return err.fail(element.read_err, element.read_msg);
  }
  undo.release();
  return 0;
}

u32 c2d_USER_PKCS10_CERT_REQ_INFO(const USER_PKCS10_CERT_REQ_INFO* user, DATA_BUFFER* der) {
  ErrorScope err(611);
  PKCS10_CERT_REQ_INFO info;
  if (u2l_USER_PKCS10_CERT_REQ_INFO(user, &info) != 0) {
    return err.fail(2, "u2l_USER_PKCS10_CERT_REQ_INFO");
  }
  auto release = on_exit([&] { free_PKCS10_CERT_REQ_INFO(&info); });
  if (Der_Encode_PKCS10_CERT_REQ_INFO(&info, der) != 0) {
    return err.fail(3, "Der_Encode_PKCS10_CERT_REQ_INFO");
  }
  return 0;
}

u32 d2c_USER_PKCS10_CERT_REQ(u32 total, const u8* der, USER_PKCS10_CERT_REQ_INFO* user) {
  ErrorScope err(612);
  PKCS10_CERT_REQ_INFO info;
  ini_PKCS10_CERT_REQ_INFO(&info);
  if (Der_Decode_PKCS10_CERT_REQ_INFO(total, der, &info) != 0) {
    return err.fail(1, "Der_Decode_PKCS10_CERT_REQ_INFO");
  }
  auto release = on_exit([&] { free_PKCS10_CERT_REQ_INFO(&info); });
  if (l2u_USER_PKCS10_CERT_REQ_INFO(&info, user) != 0) {
    return err.fail(2, "l2u_USER_PKCS10_CERT_REQ_INFO");
  }
  return 0;
}

u32 Encode_PKCS10_Signed_Req(const USER_PKCS10_CERT_REQ_INFO* user, const USER_X509_ALG_ID* alg,
                             const SIGNING_KEY* key, u8* out, u32* outLen) {
  ErrorScope err(613);
  COMMON_SIGNED_PACKET packet;
  ini_COMMON_SIGNED_PACKET(&packet);
  auto release = on_exit([&] { free_COMMON_SIGNED_PACKET(&packet); });
  if (c2d_USER_PKCS10_CERT_REQ_INFO(user, &packet.tbs) != 0) {
    return err.fail(1, "c2d_USER_PKCS10_CERT_REQ_INFO");
  }
  if (u2l_signature(alg, &packet.signatureAlgorithm) != 0) return err.fail(2, "u2l_signature");
  if (sign_COMMON_SIGNED_PACKET(err, 3, 3, alg->algorithm, key->keyName, key->keySecondText,
                                &packet) != 0) {
    return 1;
  }
  DATA_BUFFER request;
  ini_DATA_BUFFER(&request);
  if (Der_Encode_COMMON_SIGNED_PACKET(&packet, &request) != 0) {
    return err.fail(4, "Der_Encode_COMMON_SIGNED_PACKET");
  }
  std::memcpy(out, request.data, request.length);
  *outLen = request.length;
  return free_DATA_BUFFER(&request);
}

u32 Decode_PKCS10_Signed_Req(const u8* der, u32 derLen, USER_PKCS10_CERT_REQ_INFO* user) {
  ErrorScope err(614);
  return unwrap_signed_request(
      err, der, derLen, "d2c_USER_PKCS10_CERT_REQ",
      [user](u32 total, const u8* tbs) { return d2c_USER_PKCS10_CERT_REQ(total, tbs, user); });
}

}  // namespace hylorn
